#include "model/eviction.h"

#include <stdlib.h>
#include <string.h>

#include "model/data_room.h"

namespace {

constexpr int64_t kMiB = 1024 * 1024;

// Whole MiB, as GiB.
float to_gib(int64_t bytes) {
  return static_cast<float>(bytes / kMiB) * 0.0009765625F;
}

// The regular expression ^(\d+)#(.*)$ over a whole name, by hand: std::regex takes longer than the
// stat() beside it. As there, '.' is no line end.
bool is_numbered(const char* name) {
  const size_t digits = strspn(name, "0123456789");
  return digits > 0 && name[digits] == '#' && strpbrk(name, "\n\r") == nullptr;
}

}  // namespace

SizeVerdict judge_sizes(const SizeReading& reading) {
  SizeVerdict verdict;
  verdict.store_gib = to_gib(reading.store_bytes);
  verdict.common_gib = to_gib(reading.common_bytes);
  verdict.total_gib = to_gib(reading.store_bytes + reading.common_bytes);
  verdict.total_mib = (reading.store_bytes + reading.common_bytes) / kMiB;
  verdict.limit_mib = quota_mib(reading.quota_gib, reading.shrunk);
  verdict.over_quota = verdict.total_mib > verdict.limit_mib;
  verdict.extreme_low = data_extremely_low(reading.available, reading.preallocated);
  return verdict;
}

void OldestRun::add(const char* directory) {
  if (!is_numbered(directory)) return;
  count++;
  const int its_number = atoi(directory);
  if (its_number < 1 || (number != -1 && its_number >= number)) return;
  number = its_number;
  name = directory;
}

EvictionPlan plan_eviction(const OldestRun& store, const OldestRun& working, int current,
                           bool logging, int earlier) {
  const int in_store = store.number != -1 ? store.number : earlier;
  if (!logging && store.count == 1 && in_store == current) return {Eviction::kKeepLast, in_store};
  if (store.number != -1) return {Eviction::kStoreRun, in_store};
  if (!logging) return {Eviction::kNothing, in_store};
  const int in_working = working.number != -1 ? working.number : in_store;
  if (in_working == current) {
    // A restart deletes every finished run: only when it is sure that nothing smaller would do.
    return {store.unknown ? Eviction::kRestartWithheld : Eviction::kRestart, in_working};
  }
  return {working.number != -1 ? Eviction::kWorkingRun : Eviction::kNothing, in_working};
}

bool restart_is_due(const RestartRecord& last, int64_t now_ms, int64_t total_bytes) {
  return last.at_ms == -1 || now_ms - last.at_ms >= kRestartPauseMs ||
         total_bytes < last.left_bytes;
}
