// What a file tells of its times without being read.
#pragma once

#include <stdint.h>

#include <string_view>

#include "client/reader/stamp.h"

struct FileSpan {
  LogStamp first = kNoStamp;  // of its first and last line that have one
  LogStamp last = kNoStamp;
};

// Whether `bytes` begin the way a logcat begins its first file.
bool opens_logcat(std::string_view bytes);

// The first stamp of a line that begins in `bytes`, the start of a file; kNoStamp for none.
LogStamp first_stamp(std::string_view bytes, StampParser parser);

// Reads the beginning and the end of the regular file `fd`, 64 KiB of each at most.
FileSpan read_span(int fd, int64_t bytes, StampParser parser);

// Where to begin with lines of `since` or later: the offset of a line before them, at most some
// 64 KiB before, or 0. Looks at a few places only; the times must not decrease in the file.
int64_t find_time(int fd, int64_t bytes, StampParser parser, LogStamp since);
