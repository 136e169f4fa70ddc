// The size monitor's two limits, to the byte. The numbers are repeated here on purpose.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include "model/data_room.h"
#include "model/eviction.h"
#include "storage/size_monitor.h"

namespace {

TEST(SizeVerdict, IsOverQuotaFromTheFirstWholeMiBAboveIt) {
  const struct {
    const char* what;
    int64_t store, common;
    int quota_gib;
    bool shrunk, over;
  } rows[] = {
      {"20 GiB exactly", 21474836480, 0, 20, false, false},
      {"a byte less than a MiB more", 21475885055, 0, 20, false, false},
      {"a MiB more", 21475885056, 0, 20, false, true},
      {"two halves of a MiB are one", 10737942528, 10737942528, 20, false, true},
      {"the working area alone", 0, 21475885056, 20, false, true},
      {"three quarters and a byte", 16106127361, 0, 20, true, false},
      {"three quarters and a MiB", 16107175936, 0, 20, true, true},
      {"the same without these types", 16107175936, 0, 20, false, false},
      {"three quarters of 1 GiB are no whole number", 805306368, 0, 1, true, false},
      {"no quota, a MiB", 0, 1048576, 0, false, true},
      {"a quota below nothing", 0, 0, -1, false, true},
  };
  for (const auto& row : rows) {
    const SizeVerdict verdict =
        judge_sizes({row.store, row.common, row.quota_gib, row.shrunk, 1 << 30});
    EXPECT_EQ(verdict.over_quota, row.over) << row.what;
    EXPECT_FALSE(verdict.extreme_low) << row.what;
  }
}

TEST(SizeVerdict, SizesAreGibibytes) {
  const SizeVerdict verdict = judge_sizes({1610612736, 536870912, 20, false, 0});
  EXPECT_EQ(verdict.store_gib, 1.5F);
  EXPECT_EQ(verdict.common_gib, 0.5F);
  EXPECT_EQ(verdict.total_gib, 2.0F);
}

TEST(SizeVerdict, LessThan128MiBForTheCaptureIsExtremelyLowAndUnknownIsNot) {
  const struct {
    int64_t available, preallocated;
    bool low;
  } rows[] = {
      {-2, 0, false},       {-1, 0, false},           {0, 0, false},         {1, 0, true},
      {134217727, 0, true}, {134217728, 0, false},    {134217729, 0, false}, {INT64_MAX, 0, false},
      {1, 134217726, true}, {1, 134217727, false},    {134217727, 1, false}, {0, 1, false},
      {-2, 4096, false},    {4096, 629145600, false},
  };
  for (const auto& row : rows) {
    const SizeVerdict verdict = judge_sizes({0, 0, 20, false, row.available, row.preallocated});
    EXPECT_EQ(verdict.extreme_low, row.low) << row.available << " and " << row.preallocated;
    EXPECT_FALSE(verdict.over_quota) << row.available;
  }
}

TEST(SizeVerdict, ACopyLeaves128MiBOfDataFree) {
  const struct {
    int64_t needed, available;
    bool on_data;
    int64_t preallocated;
    bool fits;
  } rows[] = {
      {0, 0, true, 0, true},         {1, 134217729, true, 0, true}, {1, 134217728, true, 0, false},
      {1, 134217728, true, 1, true}, {5, 4, true, 1 << 30, false},  {4, 4, false, 0, true},
      {5, 4, false, 0, false},       {4, 4, true, 134217728, true},
  };
  for (const auto& row : rows)
    EXPECT_EQ(copy_fits(row.needed, row.available, row.on_data, row.preallocated), row.fits)
        << &row - rows;
}

TEST(SizeVerdict, ARestartThatDidNotHelpIsNotRepeatedAtOnce) {
  const struct {
    RestartRecord last;
    int64_t now_ms, total_bytes;
    bool due;
  } rows[] = {
      {{}, 5000, 100, true},             // none yet
      {{5000, -1}, 5001, 100, false},    // not checked yet
      {{5000, 100}, 11500, 100, false},  // nothing has changed
      {{5000, 100}, 11500, 101, false},  // the new run grows
      {{5000, 100}, 11500, 99, true},    // something is gone
      {{5000, 100}, 604999, 200, false},
      {{5000, 100}, 605000, 200, true},  // ten minutes
  };
  for (const auto& row : rows)
    EXPECT_EQ(restart_is_due(row.last, row.now_ms, row.total_bytes), row.due)
        << row.last.at_ms << " " << row.now_ms << " " << row.total_bytes;
}

// A store that cannot be listed for a moment must not count as empty: the size monitor would
// restart logging, which deletes every finished run.
bool unknown(const char* dir, bool descriptors) {
  rlimit before;
  getrlimit(RLIMIT_NOFILE, &before);
  const rlimit now = {descriptors ? before.rlim_cur : 0, before.rlim_max};
  setrlimit(RLIMIT_NOFILE, &now);
  const OldestRun found = findOldestLogDir(dir);
  setrlimit(RLIMIT_NOFILE, &before);
  EXPECT_EQ(found.number, -1);
  return found.unknown;
}

TEST(OldestRun, IsUnknownOnlyWhereADirectoryCannotBeListed) {
  EXPECT_FALSE(unknown("/nowhere/at/all", true));
  EXPECT_FALSE(unknown("/dev/null", true));
  EXPECT_FALSE(unknown("/dev", true));
  EXPECT_TRUE(unknown("/dev", false));
}

}  // namespace
