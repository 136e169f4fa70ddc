// Which devices are recorded, and what becomes of them when they come and go.
#include <sys/ptrace.h>
#include <sys/syscall.h>

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
  // Plugs a device and waits until the recorder has looked at it.
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
      {"cypress_touchkey", true},
      {"front_touch", true},
      {"second_touch", true},
      {"zelka_tgk_aw_sar0_ch0", true},
      {"zelka_tgk_aw_sar1_ch0", true},
      {"my-himax-panel,v2", true},
      {"gpio-keys", false},
      {"zelka_tgk_aw_sar0_ch1", false},
      {"zelka_tgk_aw_sar2_ch0", false},
      {filler + "+++++++++++++himax", true},     // 78 characters
      {filler + "++++++++++++++himax", true},    // 79, of which the device gives all
      {filler + "+++++++++++++++himax", false},  // the last one is not asked for
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

TEST_F(TouchDevices, SayWhatTheyCannotDo) {
  ASSERT_EQ(symlink("nowhere", "/dev/input/event0"), 0);
  ASSERT_EQ(finger("plug-without-clock event1 himax\n"), 0);
  record();
  const Texts said = lines_of(get(kStderrFile));
  EXPECT_EQ(said.size(), 2u);
  for (const char* line : {"could not open /dev/input/event0, No such file or directory",
                           "Can't enable monotonic clock reporting: Invalid argument"})
    EXPECT_EQ(std::count(said.begin(), said.end(), line), 1) << line;
  ASSERT_EQ(finger(press("event1")), 0);  // recorded all the same
  EXPECT_EQ(wait_for_events(1), Texts({down_line(false)}));
}

TEST_F(TouchDevices, RemovalsAreRecorded) {
  record();
  plug("event0", "himax");
  plug("event1", "gpio-keys");
  plug("event2", "front_touch");
  ASSERT_EQ(finger("unplug event0\nunplug event1\nunplug event2\n"), 0);
  EXPECT_EQ(wait_for_events(2),
            Texts({"remove device 1: /dev/input/event0", "remove device 1: /dev/input/event2"}));
  EXPECT_TRUE(eventually(
      [] { return get(kStderrFile) == "remote device: /dev/input/event1 not found\n"; }));
}

// Three devices, removed in every order: whoever is left keeps its own marker.
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

// Lets the stopped recorder go on until it has just left the system call `call`, and holds it
// there.
void run_until_after(pid_t recorder, long call) {
  int status;
  ASSERT_EQ(waitpid(recorder, &status, WUNTRACED), recorder);
  ASSERT_EQ(ptrace(PTRACE_SEIZE, recorder, 0, PTRACE_O_TRACESYSGOOD), 0);
  ASSERT_EQ(kill(recorder, SIGCONT), 0);
  for (__ptrace_syscall_info info = {}; info.op != PTRACE_SYSCALL_INFO_EXIT;) {
    ptrace(PTRACE_SYSCALL, recorder, 0, 0);
    ASSERT_EQ(waitpid(recorder, &status, __WALL), recorder);
    ASSERT_TRUE(WIFSTOPPED(status));
    if (WSTOPSIG(status) != (SIGTRAP | 0x80)) continue;
    const auto before = static_cast<long>(info.entry.nr);
    ptrace(PTRACE_GET_SYSCALL_INFO, recorder, sizeof(info), &info);
    if (info.op == PTRACE_SYSCALL_INFO_EXIT && before != call) info.op = PTRACE_SYSCALL_INFO_NONE;
  }
}

// Devices that appear between the watch and the scan are found by the one and told by the other.
TEST_F(TouchDevices, AreOpenedOnceWhileTheyAppear) {
  begin_stopped();
  ASSERT_NO_FATAL_FAILURE(run_until_after(recorder_, SYS_inotify_add_watch));
  ASSERT_EQ(finger("plug event0 himax\nplug event1 second_touch\n"), 0);
  ASSERT_EQ(ptrace(PTRACE_DETACH, recorder_, 0, 0), 0);
  // This one is told after them: when it is recorded, they have been told too.
  ASSERT_TRUE(eventually([] { return logged("E gettouchlog, nfds:3") == 1; }));
  plug("event2", "front_touch");
  ASSERT_EQ(finger(press("event0") + press("event1") + press("event2")), 0);
  EXPECT_EQ(wait_for_events(3), Texts({down_line(false), down_line(true), down_line(false)}));
  for (const auto& [node, count] : readers()) EXPECT_EQ(count, 1) << node;
}

// One device is used all the time while another one comes and goes.
TEST_F(TouchDevices, ComeAndGoDuringAReplay) {
  constexpr int kTimes = 100;
  constexpr int kReplayed = 2000;
  record();
  plug("event0", "himax");
  std::thread replay([] {
    EXPECT_EQ(finger("rate 4000\ncount event0 0 " + std::to_string(kReplayed) + "\n"), 0);
  });
  for (int i = 0; i < kTimes && !HasFatalFailure(); i++) {
    plug("event1", "second_touch");
    EXPECT_EQ(finger(press("event1") + "unplug event1\n"), 0);
  }
  replay.join();
  const Texts lines = wait_for_events(kReplayed + 2 * kTimes, 60000);
  int next = 0, presses = 0, removals = 0;
  for (const std::string& line : lines) {
    int number;
    if (sscanf(line.c_str(), " EV_ABS ABS_X %d", &number) == 1) {
      EXPECT_EQ(number, next++);
    } else if (line == down_line(true)) {
      EXPECT_EQ(presses++, removals);  // before its own removal
    } else {
      EXPECT_EQ(line, "remove device 2: /dev/input/event1");
      removals++;
    }
  }
  EXPECT_EQ(next, kReplayed);
  EXPECT_EQ(presses, kTimes);
  EXPECT_EQ(removals, kTimes);
}

// A device that hung up but whose node is still there must cost nothing.
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
    // It goes when its node goes, and the others stay what they were.
    ASSERT_EQ(finger("unplug event1\n" + press("event2") + "unplug event2\n"), 0);
    const Texts all = wait_for_events(lines += 3);
    EXPECT_EQ(Texts(all.end() - 3, all.end()),
              Texts({"remove device 2: /dev/input/event1", down_line(false),
                     "remove device 2: /dev/input/event2"}));
  }
}

// What the device still had for us is read before its end is believed.
TEST_F(TouchDevices, WaitingEventsOfAHungUpOneAreRecorded) {
  constexpr int kEvents = 500;
  record();
  plug("event0", "himax");
  ASSERT_EQ(kill(recorder_, SIGSTOP), 0);
  ASSERT_EQ(finger("count event0 0 " + std::to_string(kEvents) + "\nhangup event0\n"), 0);
  ASSERT_EQ(kill(recorder_, SIGCONT), 0);
  EXPECT_EQ(wait_for_events(kEvents).size(), static_cast<size_t>(kEvents));
  plug("event1", "himax");
  ASSERT_EQ(finger(press("event1")), 0);
  EXPECT_EQ(wait_for_events(kEvents + 1).back(), down_line(false));
}

}  // namespace
