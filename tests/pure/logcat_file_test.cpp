// The end of a logcat's file, and how often a logcat is restarted.
#include "selflog/logcat_file.h"

#include <gtest/gtest.h>

#include "debuglog/logcat.h"
#include "model/data_room.h"
#include "selflog/replacement_pace.h"

namespace {

TEST(LogcatFile, IsCutAfterItsLastWholeLine) {
  const struct {
    int64_t length;
    const char* tail;
    int64_t kept;
  } rows[] = {
      {0, "", 0},          {4, "one\n", 4},        {7, "one\ntwo", 4},
      {3, "one", 0},       {1, "\n", 1},           {9000, "e\nnext on", 8993},
      {9000, "e\n", 9000}, {9000, "no end", 9000},  // longer than any log line
  };
  for (const auto& row : rows) EXPECT_EQ(whole_lines(row.length, row.tail), row.kept) << row.tail;
}

TEST(LogcatFile, KeepsBlocksAllocatedBeyondItsEnd) {
  struct stat info = {};
  const struct {
    blkcnt_t blocks;
    off_t size;
    int64_t held;
  } rows[] = {{0, 0, 0}, {8, 4096, 0}, {204800, 2048, 104855552}, {8, 1 << 30, 0}, {8, 1, 4095}};
  for (const auto& row : rows) {
    info.st_blocks = row.blocks;
    info.st_size = row.size;
    EXPECT_EQ(preallocated(info), row.held) << row.blocks;
  }
}

TEST(LogcatFile, IsKeptInAtLeastOneGeneration) {
  const struct {
    int32_t setting;
    bool extended;
    int32_t kept;
  } rows[] = {{9, false, 9}, {1, false, 1}, {0, false, 9},  {-1, false, 9},
              {5, true, 39}, {0, true, 39}, {99, false, 99}};
  for (const auto& row : rows)
    EXPECT_EQ(files_to_keep(row.setting, row.extended), row.kept) << row.setting;
}

TEST(ReplacementPace, IsOneASecondAfterThreeInTenSeconds) {
  const std::pair<int64_t, int> rows[] = {
      {100, 0},     {101, 0},     {102, 0},     // three at once
      {103, 999},   {1105, 997},  {2103, 999},  // then a second apart
      {4200, 0},    {12200, 0},   {13102, 0},   // a late one does not wait
      {13103, 999}, {14200, 902}, {60000, 0},
  };
  ReplacementPace pace;
  for (const auto& [now, delay] : rows) EXPECT_EQ(pace.next_delay_ms(now), delay) << now;
}

}  // namespace
