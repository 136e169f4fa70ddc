#include "client/reader/self_log.h"

bool split_self_log(std::string_view line, self_log_parts* parts) {
  constexpr size_t kNone = std::string_view::npos;
  const size_t bracket = line.find("] ");
  const size_t colons = line.find(":: ");
  if (bracket == kNone || colons == kNone) return false;
  const size_t bar = line.find('|', bracket);
  const size_t second = bar == kNone ? bar : line.find('|', bar + 1);
  if (second == kNone || second > colons) return false;
  parts->function = line.substr(bar + 1, second - bar - 1);
  parts->message = line.substr(colons + 3);
  return true;
}
