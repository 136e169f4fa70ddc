// Free space: when /data counts as full, and whether a copy fits. Daemon and client use the same
// rules.
#pragma once

#include <stdint.h>
#include <sys/stat.h>

#include <algorithm>
#include <string>

// Bytes that a file has allocated behind its end: a logcat's rotation size that is not used yet.
inline int64_t preallocated(const struct stat& info) {
  constexpr int64_t kStatBlock = 512;  // of st_blocks
  return std::max<int64_t>(0, static_cast<int64_t>(info.st_blocks) * kStatBlock - info.st_size);
}

// Kept free on /data for the rest of the phone; logging starts only with more.
constexpr int64_t kDataReserve = INT64_C(128) * 1024 * 1024;
// Logging starts only with more free on shared storage.
constexpr int64_t kSdcardReserve = INT64_C(64) * 1024 * 1024;

// True for 1 to kDataReserve - 1 bytes that are `available` (0 and below: unknown, never low) or
// were `preallocated` by the current run's logcats.
constexpr bool data_extremely_low(int64_t available, int64_t preallocated) {
  return available > 0 && available + preallocated < kDataReserve;
}

// Whether `needed` bytes may be copied to storage that has `available` free. Where the copy lies
// `on_data` (on a phone, shared storage does too) the reserve stays free. What captures have
// `preallocated` counts as reserve: they free it when they end, and a small phone has no other. 0
// bytes always fit.
constexpr bool copy_fits(int64_t needed, int64_t available, bool on_data, int64_t preallocated) {
  if (needed == 0 || needed > available) return needed == 0;
  return !on_data || needed + kDataReserve <= available + preallocated;
}

// Whether an existing `path` lies on /data's storage; `root` is put before the phone's paths.
// Shared storage has its own device number also where it is a part of /data.
inline bool lies_on_data(const std::string& path, const std::string& root = "") {
  const auto on_one_device = [](const std::string& a, const std::string& b) {
    struct stat one;
    struct stat other;
    return stat(a.c_str(), &one) == 0 && stat(b.c_str(), &other) == 0 && one.st_dev == other.st_dev;
  };
  return on_one_device(path, root + "/data") ||
         (on_one_device(path, root + "/sdcard/") &&
          on_one_device(root + "/data/media/0", root + "/data"));
}
