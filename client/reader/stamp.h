// Time stamps of log lines.
#pragma once

#include <stdint.h>

#include <string>
#include <string_view>

// Microseconds since 1970-01-01 00:00 by the phone's own clock face: local time, no zone.
using LogStamp = int64_t;
constexpr LogStamp kNoStamp = INT64_MIN;
constexpr LogStamp kLastStamp = INT64_MAX;
constexpr LogStamp kSecond = 1000000;
constexpr LogStamp kDay = 86400 * kSecond;

struct CivilStamp {
  int year, month, day, hour, minute, second, micros;
};

LogStamp stamp_of(const CivilStamp& time);
CivilStamp civil_of(LogStamp stamp);

// "11-22 06:17:46.724049", as logcat has it; and with year, "2026-11-22T06:17:46.724049".
std::string stamp_text(LogStamp stamp);
std::string iso_text(LogStamp stamp);

enum class LineFormat {
  kThreadtime,  // logcat's "11-22 06:17:46.724049   113   113 I TAG : text"
  kTouch,       // the touch recorder's "2026-11-22 06:17:47:228130  ..."
  kSelfLog,     // the daemon's "26-11-22 06:17:46 || ..."
};

// Reads the stamps of one file's lines.
class StampParser {
 public:
  // `written`: the file's last modification, seconds since 1970. A line without a year gets the
  // latest year that puts it at most two days after that: the slack is for time zones and clock
  // changes.
  explicit StampParser(LineFormat format = LineFormat::kThreadtime, int64_t written = 0);

  // The stamp of a line; kNoStamp for none.
  LogStamp parse(std::string_view line) {
    return format_ == LineFormat::kThreadtime ? threadtime(line) : dated(line);
  }

 private:
  static constexpr size_t kSecondBytes = 15;  // "11-22 06:17:46."
  LogStamp threadtime(std::string_view line);
  LogStamp dated(std::string_view line) const;
  bool read_second(std::string_view line);

  LineFormat format_;
  LogStamp latest_;                 // that a line can have
  char second_[kSecondBytes] = {};  // of the line before; most lines have the same
  LogStamp second_stamp_ = 0;       // of second_
};

// The parts of a threadtime line.
struct ThreadtimeFields {
  int pid = 0;
  int tid = 0;
  char level = ' ';
  std::string_view tag;
  std::string_view message;
};

// False when the text after the valid stamp is not in this format.
bool parse_threadtime(std::string_view line, ThreadtimeFields* fields);
