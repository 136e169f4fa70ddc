// The size monitor's two limits, to the byte. The numbers stand here a second time on purpose.
#include <gtest/gtest.h>

#include "storage/size_monitor.h"

namespace {

TEST(SizeVerdict, IsOverQuotaFromTheFirstWholeMiBAboveIt) {
  const struct {
    const char* what;
    int64_t store, common;
    int quota_gib;
    bool modem_or_wifi;
    bool over;
  } rows[] = {
      {"nothing", 0, 0, 20, false, false},
      {"20 GiB exactly", 21474836480, 0, 20, false, false},
      {"a byte more is no MiB", 21474836481, 0, 20, false, false},
      {"a byte less than a MiB more", 21475885055, 0, 20, false, false},
      {"a MiB more", 21475885056, 0, 20, false, true},
      {"both places count", 10737418240, 10738466816, 20, false, true},
      {"two halves of a MiB are one", 10737942528, 10737942528, 20, false, true},
      {"the working area alone", 0, 21475885056, 20, false, true},
      {"three quarters exactly", 16106127360, 0, 20, true, false},
      {"three quarters and a byte", 16106127361, 0, 20, true, false},
      {"three quarters and a MiB", 16107175936, 0, 20, true, true},
      {"the same without these types", 16107175936, 0, 20, false, false},
      {"three quarters of 1 GiB are no whole number", 805306368, 0, 1, true, false},
      {"and a MiB", 806354944, 0, 1, true, true},
      {"no quota, less than a MiB", 1048575, 0, 0, false, false},
      {"no quota, a MiB", 1048576, 0, 0, false, true},
      {"a quota below nothing", 0, 0, -1, false, true},
  };
  for (const auto& row : rows) {
    const size_verdict verdict =
        judge_sizes({row.store, row.common, row.quota_gib, row.modem_or_wifi, 1 << 30});
    EXPECT_EQ(verdict.over_quota, row.over) << row.what;
    EXPECT_FALSE(verdict.extreme_low) << row.what;
  }
}

TEST(SizeVerdict, SizesAreGibibytes) {
  const size_verdict verdict = judge_sizes({1610612736, 536870912, 20, false, 0});
  EXPECT_EQ(verdict.store_gib, 1.5F);
  EXPECT_EQ(verdict.common_gib, 0.5F);
  EXPECT_EQ(verdict.total_gib, 2.0F);
}

TEST(SizeVerdict, LessThan128MiBFreeIsExtremelyLowAndUnknownIsNot) {
  const std::pair<int64_t, bool> rows[] = {
      {-2, false},       {-1, false},        {0, false},         {1, true},
      {134217727, true}, {134217728, false}, {134217729, false}, {INT64_MAX, false}};
  for (const auto& [available, low] : rows) {
    const size_verdict verdict = judge_sizes({0, 0, 20, false, available});
    EXPECT_EQ(verdict.extreme_low, low) << available;
    EXPECT_FALSE(verdict.over_quota) << available;
  }
}

}  // namespace
