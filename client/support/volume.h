// Free space of the phone's file systems, and messages about it.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "client/support/environment.h"
#include "model/data_room.h"
#include "model/paths.h"

// Debug logging starts only when more bytes than these are free; both limits are checked.
struct LoggingThreshold {
  const char* path;
  int64_t bytes;
};
inline constexpr LoggingThreshold kLoggingThresholds[] = {{kSdcard, kSdcardReserve},
                                                          {kData, kDataReserve}};

struct VolumeReading {
  std::string path;
  int64_t wanted = 0;     // bytes, for debug logging
  int64_t available = 0;  // bytes
  bool known = false;     // false: not available; does not prevent logging
};

inline bool has_room(const VolumeReading& volume) {
  return !volume.known || volume.available >= volume.wanted;
}

// A reading for each threshold.
std::vector<VolumeReading> read_volumes(const Environment& env);

// "/sdcard: 67108865 bytes wanted, 4096 free": the form of every message about space.
std::string space_text(const std::string& path, int64_t wanted, int64_t available);
std::string space_text(const VolumeReading& volume);

// `path`, or the nearest directory above it that exists.
std::string existing_parent(std::string path);

// Bytes that a copy of the file or directory `path` takes on a file system with blocks of `block`
// bytes: everything rounded up, links as links. 0 when it does not exist.
int64_t copy_bytes(const std::string& path, int64_t block);

// Bytes of `path` and all below it as the quota counts them (model/tree_size.h); 0 when there is
// nothing.
int64_t quota_bytes(const std::string& path);

// Bytes of whole blocks that hold `bytes`.
int64_t round_up(int64_t bytes, int64_t block);
