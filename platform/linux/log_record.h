// The log buffers of a bench phone: append-only files /dev/log/<buffer> of records, written with
// one writev each. The phone's init cuts a buffer that has grown past 16 MiB by punching out its
// oldest half, so offsets never move: a reader goes on where it was and finds the first record with
// SEEK_DATA and the magic. Records of several writers never mix, but one whose writer was killed in
// the middle may end early, at the end of a page: a reader that finds no magic behind a record
// looks for it at the following multiples of 4.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "model/log_buffers.h"

constexpr const char* kLogDirectory = "/dev/log";
constexpr uint32_t kLogRecordMagic = 0x474f4c48;  // "HLOG"
constexpr size_t kLogPayloadMax = 4068;           // the platform's limit: tag, NUL, message, NUL

// Followed by `size` bytes: tag, NUL, message, NUL; the next record begins at the next multiple
// of 4.
struct LogRecord {
  uint32_t magic;
  uint16_t size;
  uint8_t priority;  // android_LogPriority
  uint8_t uid_low;
  int32_t pid;
  int32_t tid;
  uint32_t sec;  // CLOCK_REALTIME
  uint32_t nsec;
};
static_assert(sizeof(LogRecord) == 24, "read by other processes");

// Appends one record to `buffer` (one of kLogBuffers). Bytes written or a negative errno value.
int write_log_record(const char* buffer, int priority, const char* tag, const char* message,
                     size_t message_size);
