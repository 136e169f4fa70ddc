#include "phone/logs/format.h"

#include <stdio.h>
#include <time.h>

#include "phone/util.h"

namespace {

constexpr int64_t kSecond = 1000000000;
constexpr int64_t kDay = 86400 * kSecond;

}  // namespace

bool set_log_format(const std::string& argument, LogFormat* format) {
  static constexpr struct {
    const char* name;
    LogFormat::Layout layout;
  } kLayouts[] = {
      {"brief", LogFormat::kBrief},     {"tag", LogFormat::kTag},
      {"process", LogFormat::kProcess}, {"raw", LogFormat::kRaw},
      {"time", LogFormat::kTime},       {"threadtime", LogFormat::kThreadtime},
      {"long", LogFormat::kLong},
  };
  static constexpr struct {
    const char* name;
    bool LogFormat::*flag;
  } kModifiers[] = {
      {"usec", &LogFormat::microseconds}, {"year", &LogFormat::year}, {"uid", &LogFormat::uid}};
  for (const std::string& word : split(argument, " \t,")) {
    bool known = false;
    for (const auto& row : kLayouts) {
      if (word != row.name) continue;
      format->layout = row.layout;
      known = true;
    }
    for (const auto& row : kModifiers) {
      if (word != row.name) continue;
      format->*row.flag = true;
      known = true;
    }
    if (!known) return false;
  }
  return true;
}

namespace {

std::string time_text(const LogEntry& entry, const LogFormat& format) {
  const time_t seconds = entry.time_ns / kSecond;
  const long nanoseconds = entry.time_ns % kSecond;
  struct tm local;
  localtime_r(&seconds, &local);
  char text[64];
  size_t length =
      strftime(text, sizeof text, format.year ? "%Y-%m-%d %H:%M:%S" : "%m-%d %H:%M:%S", &local);
  length += format.microseconds
                ? snprintf(text + length, sizeof text - length, ".%06ld", nanoseconds / 1000)
                : snprintf(text + length, sizeof text - length, ".%03ld", nanoseconds / 1000000);
  return std::string(text, length);
}

// The prefix of each line; widths are logcat's.
std::string prefix_of(const LogEntry& entry, const LogFormat& format) {
  const char letter = kPriorityLetters[entry.priority];
  char uid[16] = "", text[128];
  if (format.uid) snprintf(uid, sizeof uid, "%5u:", entry.uid);
  const char* after_tag = "";
  switch (format.layout) {
    case LogFormat::kRaw:
      return "";
    case LogFormat::kProcess:
      snprintf(text, sizeof text, "%c(%s%5d) ", letter, uid, entry.pid);
      return text;
    case LogFormat::kTag:
      snprintf(text, sizeof text, "%c/", letter);
      break;
    case LogFormat::kBrief:
    case LogFormat::kTime:
      snprintf(text, sizeof text, "%c/", letter);
      after_tag = "()";
      break;
    case LogFormat::kThreadtime:
      snprintf(text, sizeof text, " %s%5d %5d %c ", uid, entry.pid, entry.tid, letter);
      break;
    case LogFormat::kLong:
      snprintf(text, sizeof text, " %s%5d:%5d %c/", uid, entry.pid, entry.tid, letter);
      break;
  }
  std::string prefix = text;
  const std::string time = time_text(entry, format);
  if (format.layout == LogFormat::kThreadtime) prefix = time + prefix;
  if (format.layout == LogFormat::kTime) prefix = time + " " + prefix;
  if (format.layout == LogFormat::kLong) prefix = "[ " + time + prefix;
  std::string tag = entry.tag;
  if (tag.size() < 8) tag.resize(8, ' ');
  prefix += tag;
  if (after_tag[0] != '\0') {
    snprintf(text, sizeof text, "(%s%5d)", uid, entry.pid);
    prefix += text;
  }
  return prefix + (format.layout == LogFormat::kLong ? " ]\n" : ": ");
}

}  // namespace

std::string format_entry(const LogEntry& entry, const LogFormat& format) {
  const std::string prefix = prefix_of(entry, format);
  const std::string& message = entry.message;
  if (format.layout == LogFormat::kLong) return prefix + message + "\n\n";
  std::string text;
  size_t at = 0;
  do {
    const size_t end = std::min(message.find('\n', at), message.size());
    text.append(prefix).append(message, at, end - at).push_back('\n');
    at = end + 1;
  } while (at < message.size());
  return text;
}

int64_t time_of_line(const std::string& line, int64_t now_ns) {
  struct tm local = {};
  char fraction[8] = "";
  if (sscanf(line.c_str(), "%2d-%2d %2d:%2d:%2d.%6[0-9]", &local.tm_mon, &local.tm_mday,
             &local.tm_hour, &local.tm_min, &local.tm_sec, fraction) != 6)
    return -1;
  const time_t now = now_ns / kSecond;
  struct tm today;
  localtime_r(&now, &today);
  local.tm_mon -= 1;
  local.tm_isdst = -1;
  int64_t nanoseconds = 0, digit = kSecond / 10;
  for (const char* c = fraction; *c != '\0'; c++, digit /= 10) nanoseconds += (*c - '0') * digit;
  for (local.tm_year = today.tm_year;; local.tm_year--) {
    struct tm copy = local;
    const int64_t time = mktime(&copy) * kSecond + nanoseconds;
    if (time <= now_ns + kDay || local.tm_year < 70) return time;
  }
}
