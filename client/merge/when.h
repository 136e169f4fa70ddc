// Times as a person writes them.
#pragma once

#include <functional>
#include <string>

#include "client/merge/line_stream.h"

// What they are relative to. `end` is called only for times that count from it.
struct WhenBase {
  LogStamp start = kNoStamp;
  int64_t written = 0;  // last modification of the run, seconds since 1970: for the year
  std::function<LogStamp()> end;
};

// "[YYYY-]MM-DD hh:mm[:ss[.ffffff]]"; without a date the first such time of the run; "+N" or "-N"
// with s (which may be left out), m, h or d: so much after the start, or before the end. False for
// anything else.
bool parse_when(const std::string& text, const WhenBase& base, LogStamp* time);
