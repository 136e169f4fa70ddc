#include "client/merge/when.h"

#include <math.h>
#include <stdio.h>
#include <stdlib.h>

#include <string_view>

namespace {

constexpr std::string_view kUnits = "smhd";
constexpr int kUnitSeconds[] = {1, 60, 3600, 86400};
constexpr double kRelativeMax = 1e8;  // seconds; three years

bool parse_relative(const std::string& text, const WhenBase& base, LogStamp* time) {
  char* end = nullptr;
  double seconds = strtod(text.c_str() + 1, &end);
  if (end == text.c_str() + 1 || text[1] == '-' || text[1] == '+') return false;
  const std::string_view unit = end;
  const size_t known = unit.empty() ? 0 : kUnits.find(unit);
  if (unit.size() > 1 || known == std::string_view::npos) return false;
  seconds *= kUnitSeconds[known];
  const LogStamp from = text[0] == '+' ? base.start : base.end();
  if (!(seconds <= kRelativeMax) || from == kNoStamp) return false;
  const LogStamp distance = llround(seconds * kSecond);
  *time = text[0] == '+' ? from + distance : from - distance;
  return true;
}

// Reads "hh:mm[:ss[.ffffff]]".
bool parse_clock(const std::string& text, CivilStamp* time) {
  int used = 0;
  double seconds = 0;
  const char* rest = text.c_str();
  if (sscanf(rest, "%2d:%2d%n", &time->hour, &time->minute, &used) != 2) return false;
  rest += used;
  if (*rest == ':') {
    char* end = nullptr;
    seconds = rest[1] >= '0' && rest[1] <= '9' ? strtod(rest + 1, &end) : -1;
    if (end != nullptr) rest = end;
  }
  if (*rest != '\0' || !(seconds >= 0 && seconds < 61)) return false;
  const int64_t micros = llround(seconds * kSecond);
  time->second = static_cast<int>(micros / kSecond);
  time->micros = static_cast<int>(micros % kSecond);
  return time->hour >= 0 && time->hour < 24 && time->minute >= 0 && time->minute < 60;
}

}  // namespace

bool parse_when(const std::string& text, const WhenBase& base, LogStamp* time) {
  if (text.empty()) return false;
  if (text[0] == '+' || text[0] == '-') return parse_relative(text, base, time);
  const size_t between = text.find_first_of(" T");
  CivilStamp parts = {};
  if (between == std::string::npos) {
    if (!parse_clock(text, &parts) || base.start == kNoStamp) return false;
    const CivilStamp start = civil_of(base.start);
    parts.year = start.year;
    parts.month = start.month;
    parts.day = start.day;
    *time = stamp_of(parts);
    // A start within the named minute is not a day late.
    if (*time < base.start - 60 * kSecond) *time += kDay;
    return true;
  }
  if (!parse_clock(text.substr(between + 1), &parts)) return false;
  const std::string date = text.substr(0, between);
  int used = 0;
  const char* const dashed = date.c_str();
  const bool year =
      sscanf(dashed, "%4d-%2d-%2d%n", &parts.year, &parts.month, &parts.day, &used) == 3;
  if (!year && sscanf(dashed, "%2d-%2d%n", &parts.month, &parts.day, &used) != 2) return false;
  if (dashed[used] != '\0' || parts.month < 1 || parts.month > 12 || parts.day < 1 ||
      parts.day > 31) {
    return false;
  }
  *time = stamp_of(parts);
  if (year) return true;
  // As the lines' own years are told.
  parts.year = civil_of(base.written * kSecond + 2 * kDay).year;
  *time = stamp_of(parts);
  if (*time > base.written * kSecond + 2 * kDay) {
    --parts.year;
    *time = stamp_of(parts);
  }
  return true;
}
