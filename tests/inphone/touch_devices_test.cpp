// Which devices are recorded, and how they come and go.
#include "tests/inphone/touch.h"

namespace {

using namespace inphone;

std::string down_line(bool second) {
  return std::string(second ? "  second  " : "          ") +
         "EV_KEY       BTN_TOUCH            DOWN                ";
}

std::string press(const std::string& node) {
  return "event " + node + " EV_KEY BTN_TOUCH 1\ndrain " + node + "\n";
}

class TouchDevices : public TouchRecorder {
 protected:
  // Plugs a device and waits until the recorder has examined it.
  static void plug(const std::string& node, const std::string& name,
                   const std::string& how = "plug") {
    ASSERT_EQ(finger(how + " " + node + " " + name + "\n"), 0);
    ASSERT_TRUE(eventually([&] {
      for (const auto& [found, count] : readers()) {
        if (found == node) return count == 1;
      }
      return false;
    }));
  }
};

TEST_F(TouchDevices, AreAcceptedByAPartOfTheirName) {
  const std::string filler(60, 'x');
  const struct {
    std::string name;
    bool accepted;
  } rows[] = {
      {"zelka_goodix_ts", true},
      {"second_touch", true},
      {"zelka_tgk_aw_sar1_ch0", true},
      {"my-himax-panel,v2", true},
      {"zelka_tgk_aw_sar0_ch1", false},
      {filler + "+++++++++++++himax", true},     // 78 characters
      {filler + "++++++++++++++himax", true},    // 79, all returned by the device
      {filler + "+++++++++++++++himax", false},  // the last one is not read
  };
  std::string script;
  std::string presses;
  size_t accepted = 0;
  for (const auto& row : rows) {
    const std::string node = "event" + std::to_string(&row - rows);
    script += "plug " + node + " " + row.name + "\n";
    presses += "event " + node + " EV_KEY BTN_TOUCH 1\n";
    accepted += row.accepted;
  }
  ASSERT_EQ(finger(script), 0);
  record();
  EXPECT_EQ(logged("E gettouchlog, nfds:" + std::to_string(accepted + 1)), 1);
  for (const auto& row : rows)
    EXPECT_EQ(logged("E gettouchlog, not valid, name:" + row.name.substr(0, 79)), !row.accepted)
        << row.name;
  ASSERT_EQ(finger(presses), 0);
  EXPECT_EQ(wait_for_events(accepted).size(), accepted);
  for (const auto& [node, count] : readers()) EXPECT_EQ(count, 1) << node;  // rejected ones too
  EXPECT_EQ(get(kStderrFile), "");
}

TEST_F(TouchDevices, ReportMissingFeatures) {
  ASSERT_EQ(symlink("nowhere", "/dev/input/event0"), 0);
  ASSERT_EQ(finger("plug-without-clock event1 himax\n"), 0);
  record();
  plug("event2", "gpio-keys");  // not recorded: its removal matches no device
  ASSERT_EQ(finger("unplug event2\n"), 0);
  ASSERT_TRUE(eventually([] { return lines_of(get(kStderrFile)).size() == 3; }));
  const Texts messages = lines_of(get(kStderrFile));
  for (const char* line : {"could not open /dev/input/event0, No such file or directory",
                           "Can't enable monotonic clock reporting: Invalid argument",
                           "remote device: /dev/input/event2 not found"})
    EXPECT_EQ(std::count(messages.begin(), messages.end(), line), 1) << line;
  ASSERT_EQ(finger(press("event1")), 0);  // recorded all the same
  EXPECT_EQ(wait_for_events(1), Texts({down_line(false)}));
}

// Three devices, removed in every order: the others keep their markers.
TEST_F(TouchDevices, TheSecondOneIsKnownAfterAnyRemovals) {
  record();
  std::vector<int> order = {0, 1, 2};
  Texts expected;
  do {
    for (const char* node : {"event0", "event1", "event2"})
      plug(node, node == std::string("event1") ? "second_touch" : "front_touch");
    std::vector<int> left = {0, 1, 2};
    for (const int removed : order) {
      const auto place = std::find(left.begin(), left.end(), removed);
      expected.push_back("remove device " + std::to_string(place - left.begin() + 1) +
                         ": /dev/input/event" + std::to_string(removed));
      left.erase(place);
      ASSERT_EQ(finger("unplug event" + std::to_string(removed) + "\n"), 0);
      wait_for_events(expected.size());
      for (const int each : left) {
        ASSERT_EQ(finger(press("event" + std::to_string(each))), 0);
        expected.push_back(down_line(each == 1));
        wait_for_events(expected.size());
      }
    }
  } while (std::next_permutation(order.begin(), order.end()));
  EXPECT_EQ(events(), expected);
}

// A device that appears during the scan is found by the scan and reported by the watch.
TEST_F(TouchDevices, AreOpenedOnceWhenReportedTwice) {
  ASSERT_EQ(finger("plug event0 himax\n"), 0);
  for (int times = 0; times < 2; times++) EXPECT_EQ(open_device("/dev/input/event0"), 0);
  EXPECT_EQ(readers(), (std::vector<std::pair<std::string, int>>{{"event0", 1}}));
  EXPECT_EQ(close_device("/dev/input/event0", 0), 0);
  EXPECT_EQ(close_device("/dev/input/event0", 0), -1);
}

// A device that hung up, with its node still there, must use no CPU.
TEST_F(TouchDevices, AHungUpOneDoesNotSpin) {
  record();
  plug("event0", "himax");
  size_t lines = 0;
  for (const char* how : {"plug", "plug-readable-end"}) {
    plug("event1", "second_touch", how);
    plug("event2", "front_touch");
    ASSERT_EQ(finger(press("event1") + "hangup event1\n" + press("event0")), 0);
    lines += 2;
    EXPECT_EQ(wait_for_events(lines)[lines - 2], down_line(true));
    const int64_t before = cpu_ns();
    const auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(finger("rate 200\ncount event0 0 20\ncount event2 0 20\n"), 0);
    wait_for_events(lines += 40);
    const auto gone = std::chrono::steady_clock::now() - start;
    EXPECT_LT(cpu_ns() - before, std::chrono::nanoseconds(gone).count() / 4) << how;
    // It is removed with its node; the others are unchanged.
    ASSERT_EQ(finger("unplug event1\n" + press("event2") + "unplug event2\n"), 0);
    const Texts all = wait_for_events(lines += 3);
    EXPECT_EQ(Texts(all.end() - 3, all.end()),
              Texts({"remove device 2: /dev/input/event1", down_line(false),
                     "remove device 2: /dev/input/event2"}));
  }
}

// Pending events are read before the hang-up is handled.
TEST_F(TouchDevices, WaitingEventsOfAHungUpOneAreRecorded) {
  constexpr int kEvents = 500;
  record();
  plug("event0", "himax");
  ASSERT_EQ(signal_process(recorder_, SIGSTOP), 0);
  ASSERT_EQ(finger("count event0 0 " + std::to_string(kEvents) + "\nhangup event0\n"), 0);
  ASSERT_EQ(signal_process(recorder_, SIGCONT), 0);
  const Texts lines = wait_for_events(kEvents);
  ASSERT_EQ(lines.size(), static_cast<size_t>(kEvents));
  for (size_t i = 0; i < lines.size(); i++)
    EXPECT_NE(lines[i].find(" ABS_X                " + std::to_string(i) + " "), std::string::npos);
  plug("event1", "himax");
  ASSERT_EQ(finger(press("event1")), 0);
  EXPECT_EQ(wait_for_events(kEvents + 1).back(), down_line(false));
}

}  // namespace
