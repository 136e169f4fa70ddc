#include "phone/touch_sequences.h"

#include <gtest/gtest.h>
#include <linux/input-event-codes.h>

#include <set>

#include "input/event_line.h"

namespace {

// Follows the slots as a reader of the protocol does.
struct Hand {
  std::set<int> down;
  size_t most = 0;
  int slot = -1;
  int packets = 0;
  bool touching = false;
  Point last;

  explicit Hand(const InputEvents& events) {
    for (const InputEvent& event : events) follow(event);
  }
  void follow(const InputEvent& event) {
    if (event.type == EV_SYN) packets++;
    if (event.type == EV_KEY && event.code == BTN_TOUCH) touching = event.value != 0;
    if (event.type != EV_ABS) return;
    if (event.code == ABS_MT_SLOT) slot = event.value;
    if (event.code == ABS_MT_POSITION_X) last.x = event.value;
    if (event.code == ABS_MT_POSITION_Y) last.y = event.value;
    if (event.code != ABS_MT_TRACKING_ID) return;
    if (event.value >= 0) {
      down.insert(slot);
    } else {
      down.erase(slot);
    }
    most = std::max(most, down.size());
  }
};

TEST(TouchSequences, EveryFingerThatGoesDownComesUp) {
  const struct {
    InputEvents events;
    size_t fingers;
    int packets;
  } rows[] = {
      {tap({10, 20}), 1, 2},
      {swipe({0, 0}, {300, 900}, 1), 1, 3},
      {swipe({500, 500}, {0, 100}, 60), 1, 62},
      {many_fingers(1, 0), 1, 2},
      {many_fingers(10, 5), 10, 25},
      {many_fingers(11, 1), 10, 21},
  };
  for (const auto& row : rows) {
    const Hand hand(row.events);
    EXPECT_EQ(hand.most, row.fingers);
    EXPECT_EQ(hand.packets, row.packets);
    EXPECT_TRUE(hand.down.empty());
    EXPECT_FALSE(hand.touching);
  }
}

TEST(TouchSequences, ASwipeEndsWhereItIsTold) {
  const Hand hand(swipe({10, 2000}, {1070, 13}, 7));
  EXPECT_EQ(hand.last.x, 1070);
  EXPECT_EQ(hand.last.y, 13);
}

TEST(TouchSequences, EventsAreReadByNameAndNumber) {
  const struct {
    const char *type, *code, *value;
    bool ok;
    InputEvent event;
  } rows[] = {
      {"EV_KEY", "BTN_TOUCH", "DOWN", true, {1, 0x14a, 1}},
      {"1", "0x14a", "0", true, {1, 0x14a, 0}},
      {"EV_ABS", "ABS_MT_TRACKING_ID", "-1", true, {3, 0x39, -1}},
      {"EV_KEY", "KEY_MACRO_RECORD_STA", "REPEAT", true, {1, 0x2b0, 2}},  // as a log cuts it
      {"EV_KEY", "ABS_X", "1", false, {}},
      {"EV_NONE", "0", "0", false, {}},
      {"EV_KEY", "KEY_A", "LEFT", false, {}},
      {"EV_KEY", "", "1", false, {}},
  };
  for (const auto& row : rows) {
    InputEvent event = {};
    EXPECT_EQ(read_event(row.type, row.code, row.value, &event), row.ok) << row.code;
    if (row.ok) {
      EXPECT_TRUE(event == row.event) << row.code;
    }
  }
}

std::string logged_line(const civil_time& when, long microseconds, bool second,
                        const InputEvent& event) {
  char stamp[kEventStampSize];
  char text[kEventLineSize];
  format_event_stamp(stamp, when, microseconds);
  format_event_fields(text, event.type, event.code, event.value);
  return std::string(stamp) + event_device_marker(second) + text;
}

TEST(TouchSequences, ALogLineIsReadBack) {
  const InputEvent events[] = {{1, 0x14a, 1}, {1, 30, 7},         {3, 0x35, -20}, {3, 0x3e, 5},
                               {0, 0, 0},     {0x06, 0xbeef, 12}, {0x17, 1, 1}};
  for (const bool second : {false, true}) {
    for (const InputEvent& event : events) {
      const std::string line = logged_line({2024, 2, 29, 23, 59, 59}, 7, second, event);
      LoggedEvent logged;
      ASSERT_TRUE(read_log_line(line, &logged)) << line;
      EXPECT_TRUE(logged.event == event) << line;
      EXPECT_EQ(logged.second_touch, second);
    }
  }
  LoggedEvent logged;
  for (const char* line : {"remove device 1: /dev/input/event0", "", "2024-02-29 23:59:59:7  ",
                           "2024-02-29 23:59:59:7            EV_KEY       BTN_TOUCH"})
    EXPECT_FALSE(read_log_line(line, &logged)) << line;
}

TEST(TouchSequences, TimeRunsOnAcrossMonthsAndLeapDays) {
  const struct {
    civil_time before, after;
    int64_t seconds;
  } rows[] = {
      {{2024, 2, 29, 23, 59, 59}, {2024, 3, 1, 0, 0, 1}, 2},
      {{2023, 2, 28, 23, 59, 59}, {2023, 3, 1, 0, 0, 0}, 1},
      {{2025, 12, 31, 23, 59, 58}, {2026, 1, 1, 0, 0, 0}, 2},
      {{2024, 1, 1, 0, 0, 0}, {2025, 1, 1, 0, 0, 0}, 366 * 86400},
  };
  for (const auto& row : rows) {
    LoggedEvent before, after;
    ASSERT_TRUE(read_log_line(logged_line(row.before, 999999, false, {0, 0, 0}), &before));
    ASSERT_TRUE(read_log_line(logged_line(row.after, 1, false, {0, 0, 0}), &after));
    EXPECT_EQ(after.microseconds - before.microseconds, row.seconds * 1000000 - 999998);
  }
}

}  // namespace
