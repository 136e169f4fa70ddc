#include "protocol/names.h"

#include <stdio.h>
#include <strings.h>

#include <charconv>
#include <iterator>

const MaskWords kLoggerTypeWords = {"logger type", kLoggerTypeNames, std::size(kLoggerTypeNames),
                                    kLoggerOptionNames, std::size(kLoggerOptionNames)};
const MaskWords kFeedbackWords = {"feedback selection", kFeedbackNames, std::size(kFeedbackNames),
                                  nullptr, 0};

namespace {

bool same_word(std::string_view a, std::string_view b) {
  return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

template <typename Visit>
void each_word(const MaskWords& words, Visit visit) {
  for (size_t i = 0; i < words.row_count; i++) visit(words.rows[i]);
  for (size_t i = 0; i < words.extra_count; i++) visit(words.extra[i]);
}

bool parse_number(std::string_view text, int32_t* value) {
  int base = 10;
  if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
    base = 16;
    text.remove_prefix(2);
  }
  if (text.empty() || text[0] == '-') return false;
  const auto [end, problem] = std::from_chars(text.data(), text.data() + text.size(), *value, base);
  return problem == std::errc() && end == text.data() + text.size();
}

bool parse_word(const MaskWords& words, std::string_view word, int32_t* mask) {
  *mask = 0;
  if (same_word(word, "none")) return true;
  if (same_word(word, "all")) {
    for (size_t i = 0; i < words.row_count; i++) *mask |= words.rows[i].mask;
    return true;
  }
  each_word(words, [&](const NamedBit& row) {
    if (same_word(word, row.name)) *mask = row.mask;
  });
  return *mask != 0 || parse_number(word, mask);
}

}  // namespace

bool parse_mask(const MaskWords& words, std::string_view text, int32_t* mask, std::string* error) {
  int32_t all = 0;
  for (size_t start = 0; start <= text.size();) {
    const size_t comma = text.find(',', start);
    const size_t end = comma == std::string_view::npos ? text.size() : comma;
    const std::string_view word = text.substr(start, end - start);
    int32_t bits = 0;
    if (!parse_word(words, word, &bits)) {
      *error = std::string("no ") + words.what + " is called \"" + std::string(word) +
               "\"; allowed, with commas between: all, none, a number up to 0x7fffffff";
      each_word(words, [&](const NamedBit& row) { *error += std::string(", ") + row.name; });
      return false;
    }
    all |= bits;
    start = end + 1;
  }
  *mask = all;
  return true;
}

int32_t unnamed_bits(const MaskWords& words, int32_t mask) {
  each_word(words, [&](const NamedBit& row) { mask &= ~row.mask; });
  return mask;
}

std::string mask_text(const MaskWords& words, int32_t mask) {
  std::string text;
  const auto add = [&](const char* word) {
    if (!text.empty()) text += ',';
    text += word;
  };
  each_word(words, [&](const NamedBit& row) {
    if ((mask & row.mask) != 0) add(row.name);
  });
  const int32_t rest = unnamed_bits(words, mask);
  if (rest != 0) {
    char number[16];
    snprintf(number, sizeof number, "0x%x", static_cast<unsigned>(rest));
    add(number);
  }
  return text.empty() ? "none" : text;
}
