// How a logcat shows an entry: -v's formats and modifiers.
#pragma once

#include <string>

#include "phone/logs/entry.h"

struct LogFormat {
  enum Layout { kBrief, kTag, kProcess, kRaw, kTime, kThreadtime, kLong };
  Layout layout = kThreadtime;
  bool microseconds = false;
  bool year = false;
  bool uid = false;
};

// Takes one -v argument, for example "threadtime,usec". False for an unknown word.
bool set_log_format(const std::string& argument, LogFormat* format);

// The output's lines, each with its newline: one for each line of the message, every one with the
// full prefix. Local time.
std::string format_entry(const LogEntry& entry, const LogFormat& format);

// The time at the beginning of an output line "MM-DD hh:mm:ss.uuu[uuu]", as nanoseconds since the
// epoch; the year is the latest one that does not lie a day after `now_ns`. -1: no such line.
int64_t time_of_line(const std::string& line, int64_t now_ns);
