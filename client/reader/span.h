// Times of a file, found without reading all of it.
#pragma once

#include <stdint.h>

#include <string_view>

#include "client/reader/stamp.h"

struct FileSpan {
  LogStamp first = kNoStamp;  // of the first and the last line with a stamp
  LogStamp last = kNoStamp;
};

// True if `bytes` start with the header line of a logcat's first file.
bool opens_logcat(std::string_view bytes);

// The first stamp in `bytes`, the start of a file; kNoStamp for none.
LogStamp first_stamp(std::string_view bytes, StampParser parser);

// Reads the beginning and the end of the regular file `fd`, 64 KiB of each at most.
FileSpan read_span(int fd, int64_t bytes, StampParser parser);

// The offset of a line at most some 64 KiB before the first one of `since` or later, or 0. Binary
// search: the times must not decrease in the file.
int64_t find_time(int fd, int64_t bytes, StampParser parser, LogStamp since);
