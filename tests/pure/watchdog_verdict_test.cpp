#include <gtest/gtest.h>

#include "catchers/watchdog.h"

namespace {

TEST(WatchdogTimes, ARoundIsDueAfter600SecondsAndAVerdictAfterAnHour) {
  constexpr int32_t kMax = INT32_MAX;
  const struct {
    bool (*due)(int32_t since, int32_t now);
    int32_t since, now;
    bool expected;
  } rows[] = {
      {is_round_due, -1, 0, true},  // no round yet: the first one is due at once
      {is_round_due, 0, 599, false},      {is_round_due, 0, 600, true},
      {is_round_due, 1000, 999, false},   {is_round_due, kMax - 600, kMax, true},
      {is_verdict_due, 100, 3699, false}, {is_verdict_due, 100, 3700, true},
      {is_verdict_due, 4000, 0, false},   {is_verdict_due, 0, kMax, true},
  };
  for (const auto& row : rows)
    EXPECT_EQ(row.due(row.since, row.now), row.expected) << row.since << " " << row.now;
}

SleepCounters processor(int32_t vmin, int32_t aosd, int32_t cxsd) {
  SleepCounters counters;
  counters.vmin_count = vmin;
  counters.aosd_count = aosd;
  counters.cxsd_count = cxsd;
  return counters;
}

SleepCounters modem(int32_t shutdowns, int32_t xo, int32_t sleeps) {
  SleepCounters counters;
  counters.mpss_numshutdowns = shutdowns;
  counters.xo_count = xo;
  counters.sleep_count = sleeps;
  return counters;
}

// Both sides have three counters and one rule.
TEST(WatchdogCounters, StuckMeansThatAKnownCounterHasNotMoved) {
  const struct {
    const char* what;
    int32_t now[3], before[3];
    bool stuck;
  } rows[] = {
      {"all moved", {2, 3, 4}, {1, 2, 3}, false},
      {"all stand still", {1, 2, 3}, {1, 2, 3}, true},
      {"the first stands still", {1, 3, 4}, {1, 2, 3}, true},
      {"the second stands still", {2, 2, 4}, {1, 2, 3}, true},
      {"the third stands still", {2, 3, 3}, {1, 2, 3}, true},
      {"nothing is known", {-1, -1, -1}, {-1, -1, -1}, false},
      {"only the second is known and stands still", {-1, 5, -1}, {-1, 5, -1}, true},
      {"never slept at all", {0, -1, -1}, {0, -1, -1}, true},
      {"known since the baseline", {0, -1, -1}, {-1, -1, -1}, false},
      {"gone since the baseline", {-1, -1, -1}, {5, 5, 5}, false},
      {"the largest", {INT32_MAX, -1, -1}, {INT32_MAX, -1, -1}, true},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(is_ap_stuck(processor(row.now[0], row.now[1], row.now[2]),
                          processor(row.before[0], row.before[1], row.before[2])),
              row.stuck)
        << "processor: " << row.what;
    EXPECT_EQ(is_modem_stuck(modem(row.now[0], row.now[1], row.now[2]),
                             modem(row.before[0], row.before[1], row.before[2])),
              row.stuck)
        << "modem: " << row.what;
  }
}

TEST(WatchdogCounters, EachSideUsesOnlyItsOwn) {
  EXPECT_FALSE(is_ap_stuck(modem(1, 1, 1), modem(1, 1, 1)));
  EXPECT_FALSE(is_modem_stuck(processor(1, 1, 1), processor(1, 1, 1)));
}

TEST(WatchdogVerdict, EveryCase) {
  const struct {
    bool modem_stuck, captured, logger_on;
    Verdict expected;
  } rows[] = {
      // Not the modem's fault: dump at once, with or without a capture.
      {false, false, false, Verdict::kDumpAtOnce},
      {false, false, true, Verdict::kDumpAtOnce},
      {false, true, false, Verdict::kDumpAtOnce},
      {false, true, true, Verdict::kDumpAtOnce},
      // The modem's fault: capture its log first; dump only after a capture, never during one.
      {true, false, false, Verdict::kStartCapture},
      {true, false, true, Verdict::kExtendCapture},
      {true, true, false, Verdict::kDumpAfterGrace},
      {true, true, true, Verdict::kExtendCapture},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(judge(row.modem_stuck, row.captured, row.logger_on), row.expected)
        << row.modem_stuck << row.captured << row.logger_on;
  }
}

}  // namespace
