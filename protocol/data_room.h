// When /data is full: for the size monitor, which deletes then, and for those who fill it. Daemon
// and client judge alike.
#pragma once

#include <stdint.h>
#include <sys/stat.h>

#include <algorithm>

// Bytes that a file has allocated behind its end: a logcat's rotation size that is not used yet.
inline int64_t preallocated(const struct stat& info) {
  constexpr int64_t kStatBlock = 512;  // of st_blocks
  return std::max<int64_t>(0, static_cast<int64_t>(info.st_blocks) * kStatBlock - info.st_size);
}

// What shall stay free on /data for the rest of the phone.
constexpr int64_t kDataReserve = INT64_C(128) * 1024 * 1024;

// True for 1 to kDataReserve - 1 bytes that are `available` (0 and below: unknown, never low) or
// were `preallocated` by the current run's logcats.
constexpr bool data_extremely_low(int64_t available, int64_t preallocated) {
  return available > 0 && available + preallocated < kDataReserve;
}
