// How a logcat formats an entry: formats and modifiers of -v.
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

// The output, one line with the full prefix per line of the message. Local time.
std::string format_entry(const LogEntry& entry, const LogFormat& format);

// Parses the time at the start of an output line, "MM-DD hh:mm:ss.uuu[uuu]": nanoseconds since the
// epoch, in the latest year that is at most a day after `now_ns`. -1: no such line.
int64_t time_of_line(const std::string& line, int64_t now_ns);
