// The quota of all runs: when it is exceeded, and what is removed next. The daemon's size monitor
// acts on these rules, the client shows their results. Functions over values.
#pragma once

#include <stdint.h>

#include <string>

#include "model/masks.h"

// ---- When runs are removed. ----

constexpr int kDefaultQuotaGib = 20;

// Modem and Wi-Fi logs shrink the quota to three quarters.
constexpr bool shrinks_quota(int32_t types) {
  return (types & (kTypeModem | kTypeWifi)) != 0;
}
constexpr int64_t quota_mib(int quota_gib, bool shrunk) {
  return int64_t{quota_gib} * (shrunk ? 768 : 1024);
}

struct SizeReading {
  int64_t store_bytes;   // "/sdcard/zelkalog/"
  int64_t common_bytes;  // "/data/misc/zelkalog/"
  int quota_gib;         // "persist.sys.zelka.log.size"
  bool shrunk;           // shrinks_quota()
  int64_t available;     // bytes free on "/data"; 0 and below: unknown
  // Bytes that the capture has allocated for lines to come: as good as free, to it alone.
  int64_t preallocated = 0;
};

struct SizeVerdict {
  float store_gib;
  float common_gib;
  float total_gib;
  int64_t total_mib;
  int64_t limit_mib;
  bool over_quota;   // total_mib > limit_mib
  bool extreme_low;  // less than 128 MiB available or preallocated on "/data": everything goes
};

SizeVerdict judge_sizes(const SizeReading& reading);

// ---- What is removed, while over quota. ----

// The oldest run of a tree.
struct OldestRun {
  int count = 0;         // numbered directories ("<digits>#..."), also number 0; -1: not opened
  int number = -1;       // the smallest of at least 1, -1: none
  std::string name;      // of that one; of two with one number, the first
  bool unknown = false;  // there is a tree, but it could not be listed to its end

  // Counts the directory of this name.
  void add(const char* directory);
};

enum class Eviction {
  kNothing,
  kKeepLast,         // logging is off, and the store holds its last run alone
  kStoreRun,         // the store's oldest: finished runs go first
  kWorkingRun,       // the oldest that is left in the working area
  kRestart,          // only the current run is left: delete everything else and start anew
  kRestartWithheld,  // the same, but the store may hold runs that would do
};

struct EvictionPlan {
  Eviction what;
  int oldest;  // the number that was decided by: the next `earlier`
};

// `current` is the number of the run being written; `earlier` the oldest number of an earlier cycle
// (-1: none yet), used for a tree that has none.
EvictionPlan plan_eviction(const OldestRun& store, const OldestRun& working, int current,
                           bool logging, int earlier);

// ---- The pause after a restart. ----

// Result of the last restart because of the quota.
struct RestartRecord {
  int64_t at_ms = -1;       // of CLOCK_MONOTONIC; -1: none yet, or it has helped
  int64_t left_bytes = -1;  // of both trees in the first cycle afterwards; -1: none yet
};

// A restart deletes everything. When the sizes stay above the quota, something cannot be deleted:
// try again after ten minutes, or when the trees have shrunk.
constexpr int64_t kRestartPauseMs = 600000;
bool restart_is_due(const RestartRecord& last, int64_t now_ms, int64_t total_bytes);
