#include "client/reader/self_log.h"

bool split_self_log(std::string_view line, SelfLogParts* parts) {
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

std::string retell(const ToldMessage* rows, size_t count, std::string_view line) {
  SelfLogParts parts;
  if (!split_self_log(line, &parts)) return "";
  for (const ToldMessage* row = rows; row != rows + count; ++row) {
    if (!row->function.empty() && row->function != parts.function) continue;
    if (parts.message.substr(0, row->beginning.size()) != row->beginning) continue;
    const std::string_view rest = parts.message.substr(row->beginning.size());
    return row->append_rest ? row->told + std::string(rest) : row->told;
  }
  return "";
}
