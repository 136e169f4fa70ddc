#include "model/run_name.h"

#include <charconv>

namespace {

bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

bool is_time(std::string_view text) {
  constexpr std::string_view kShape = "00-00_00-00-00";  // 0: any digit
  if (text.size() != kShape.size()) return false;
  for (size_t i = 0; i < text.size(); i++) {
    if (kShape[i] == '0' ? !is_digit(text[i]) : text[i] != kShape[i]) return false;
  }
  return true;
}

}  // namespace

int32_t run_number(std::string_view name) {
  const size_t hash = name.find('#');
  if (hash == std::string_view::npos) return is_time(name) ? 0 : -1;
  const std::string_view digits = name.substr(0, hash);
  if (digits.empty() || digits[0] < '1' || digits[0] > '9') return -1;
  int32_t number = -1;
  const char* const end = digits.data() + digits.size();
  const auto [stopped, problem] = std::from_chars(digits.data(), end, number);
  if (problem != std::errc() || stopped != end) return -1;
  return is_time(name.substr(hash + 1)) ? number : -1;
}
