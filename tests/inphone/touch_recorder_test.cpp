// What the recorder writes: lines, rotation, order, cost, and how it begins and ends.
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/time.h>

#include <map>

#include "tests/inphone/touch.h"

namespace {

using namespace inphone;

constexpr char kFirst[] = "          ";
constexpr char kBlanks[] = "            ";  // behind a decimal value

// What `numbered` events look like.
std::string numbered_line(int number) {
  return kFirst + ("EV_ABS       ABS_X                " + std::to_string(number)) + kBlanks;
}

TEST_F(TouchRecorder, StampsTheTimeOfReading) {
  setenv("TZ", "XYZ-5:45", 1);  // east of UTC by a quarter that no default has
  ASSERT_EQ(finger("plug event0 himax\n"), 0);
  record();
  timeval before, after;
  gettimeofday(&before, nullptr);
  ASSERT_EQ(finger("count event0 1 1\n"), 0);
  wait_for_events(1);
  gettimeofday(&after, nullptr);
  tm read = {};
  const std::string line = get(kEventFile);
  const char* rest = strptime(line.c_str(), "%Y-%m-%d %H:%M:%S:", &read);
  ASSERT_NE(rest, nullptr) << line;
  const timeval stamp = {timegm(&read) - (5 * 3600 + 45 * 60), atol(rest)};
  EXPECT_FALSE(timercmp(&stamp, &before, <)) << line;
  EXPECT_FALSE(timercmp(&stamp, &after, >)) << line;
}

TEST_F(TouchRecorder, ABurstArrivesWholeAndInOrder) {
  constexpr int kEvents = 100000;
  ASSERT_EQ(finger("plug event0 zelka_synap\n"), 0);
  record();
  ASSERT_EQ(finger("count event0 0 " + std::to_string(kEvents) + "\n"), 0);
  const Texts lines = wait_for_events(kEvents, 60000);
  ASSERT_EQ(lines.size(), static_cast<size_t>(kEvents));
  for (int i = 0; i < kEvents; i++) ASSERT_EQ(lines[static_cast<size_t>(i)], numbered_line(i));
}

// The files' text, oldest first.
std::string all_generations() {
  std::string text;
  for (const char* name : {"event.3.txt", "event.2.txt", "event.1.txt", "event.txt"})
    text += get(std::string(kTouchDir) + "/" + name);
  return text;
}

// Numbers run on from file to file; only what the fourth generation would hold is gone.
TEST_F(TouchRecorder, NothingIsLostBetweenTheFiles) {
  constexpr int kBatch = 20000;
  ASSERT_EQ(finger("plug event0 himax\n"), 0);
  record();
  int sent = 0;
  for (int rotations = 1; rotations <= 6; rotations++) {
    const auto rotated = [&] {
      return logged("E openLogFile:" + std::string(kEventFile) + ".mOutByteCount = 0\n") >
             rotations;
    };
    for (; !rotated(); sent += kBatch) {
      ASSERT_LT(sent, kBatch * 100);
      ASSERT_EQ(finger("count event0 " + std::to_string(sent) + " " + std::to_string(kBatch) +
                       "\ndrain event0\n"),
                0);
    }
    const std::string last = numbered_line(sent - 1) + "\n";
    ASSERT_TRUE(eventually([&] {
      const std::string text = get(kEventFile);
      return text.size() >= last.size() &&
             text.compare(text.size() - last.size(), last.size(), last) == 0;
    }));
    EXPECT_EQ(list(kTouchDir).size(), static_cast<size_t>(std::min(rotations, 3)) + 1);
    EXPECT_FALSE(exists(std::string(kTouchDir) + "/event.4.txt"));
    Texts lines = lines_of(all_generations());
    int first = 0;
    if (rotations > 3) {  // the oldest file begins wherever the one that is gone ended
      ASSERT_EQ(sscanf(lines[1].c_str() + lines[1].find("ABS_X"), "ABS_X %d", &first), 1);
      lines.erase(lines.begin());
    }
    ASSERT_EQ(static_cast<int>(lines.size()), sent - first) << rotations;
    for (const std::string& line : lines) {
      const std::string expected = numbered_line(first++);
      ASSERT_EQ(line.compare(line.size() - expected.size(), expected.size(), expected), 0) << line;
    }
  }
}

#ifdef SYS_poll
constexpr long kPollCall = SYS_poll;
#else  // arm64 has the newer one only
constexpr long kPollCall = SYS_ppoll;
#endif

// Counts the system calls of the recorder, which is stopped, until it has read `events` events.
std::map<long, int> trace_calls(pid_t recorder, int events) {
  std::map<long, int> calls;
  int status;
  for (int reads = 0; reads <= events;) {
    ptrace(PTRACE_SYSCALL, recorder, 0, 0);
    if (waitpid(recorder, &status, __WALL) != recorder || !WIFSTOPPED(status)) return {};
    if (WSTOPSIG(status) != (SIGTRAP | 0x80)) continue;
    __ptrace_syscall_info info = {};
    ptrace(PTRACE_GET_SYSCALL_INFO, recorder, sizeof(info), &info);
    if (info.op != PTRACE_SYSCALL_INFO_ENTRY) continue;
    const long call = static_cast<long>(info.entry.nr);
    if (call == kPollCall && reads == events) break;  // it would wait for good
    reads += call == SYS_read;
    calls[call]++;
  }
  ptrace(PTRACE_DETACH, recorder, 0, 0);
  return calls;
}

TEST_F(TouchRecorder, MakesSixSystemCallsAnEvent) {
  constexpr int kEvents = 200;
  ASSERT_EQ(finger("plug event0 cypress_touchkey\n"), 0);
  record();
  ASSERT_EQ(finger("count event0 0 1\n"), 0);  // the first asks for the time zone
  wait_for_events(1);
  ASSERT_EQ(ptrace(PTRACE_SEIZE, recorder_, 0, PTRACE_O_TRACESYSGOOD), 0);
  ASSERT_EQ(ptrace(PTRACE_INTERRUPT, recorder_, 0, 0), 0);
  int status;
  ASSERT_EQ(waitpid(recorder_, &status, __WALL), recorder_);
  ASSERT_EQ(finger("count event0 1 " + std::to_string(kEvents) + "\n"), 0);
  std::map<long, int> calls = trace_calls(recorder_, kEvents);
  EXPECT_EQ(calls[SYS_read], kEvents);
  EXPECT_EQ(calls[SYS_write], 4 * kEvents);
  // The interrupted wait for the first of them is taken up again under another name.
  EXPECT_EQ(calls[kPollCall] + calls[SYS_restart_syscall], kEvents);
  int all = 0;
  for (const auto& [call, count] : calls) all += count;
  EXPECT_EQ(all, 6 * kEvents);
}

TEST_F(TouchRecorder, DoesNotRecordUnlessWanted) {
  begin(kTouchDir, false);
  EXPECT_EQ(end_status(), 0);
  EXPECT_EQ(get(kEventFile), "");
  EXPECT_EQ(logged("E gettouchlog, nfds:1"), 1);
}

TEST_F(TouchRecorder, AStopTakesEffectWithTheNextEvent) {
  int gate[2];
  ASSERT_EQ(pipe2(gate, O_CLOEXEC), 0);
  ASSERT_EQ(finger("plug event0 himax\n"), 0);
  recorder_ = fork();
  if (recorder_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    std::thread([&gate] {
      char byte;
      (void)!read(gate[0], &byte, 1);
      stop_tp_log();
      put("/data/stopped", "");
    }).detach();
    int result = 0;
    // Twice: a later recording has new tables and a new file, and follows the same devices.
    for (const char* dir : {kTouchDir, "/data/later"}) {
      char output[256];
      snprintf(output, sizeof(output), "%s", dir);
      mkdir(dir, 0777);
      start_tp_log();
      if (strcmp(dir, kTouchDir) != 0) put("/data/again", "");
      result += gettouchlog(output);
    }
    _exit(result);
  }
  ASSERT_TRUE(eventually([] { return logged("E gettouchlog, nfds:2") == 1; }));
  ASSERT_EQ(finger("count event0 1 1\ndrain event0\n"), 0);
  ASSERT_EQ(write(gate[1], "x", 1), 1);
  ASSERT_TRUE(eventually([] { return exists("/data/stopped"); }));
  EXPECT_FALSE(exists("/data/again"));  // it still waits
  ASSERT_EQ(finger("count event0 2 1\n"), 0);
  ASSERT_TRUE(eventually([] { return exists("/data/again"); }));
  EXPECT_EQ(events(), Texts({numbered_line(1), numbered_line(2)}));
  ASSERT_TRUE(eventually([] { return logged("E gettouchlog, nfds:2") == 2; }));
  ASSERT_EQ(finger("count event0 3 1\n"), 0);
  EXPECT_TRUE(eventually(
      [] { return without_stamps(get("/data/later/event.txt")) == Texts({numbered_line(3)}); }));
  EXPECT_EQ(events().size(), 2u);
}

TEST_F(TouchRecorder, EndsAtOnceWithOneAfterAFatalError) {
  const struct {
    const char* command;  // what spoils /dev/input
    const char* said;
  } rows[] = {
      {"mv /dev/input /dev/gone",
       "could not add watch for /dev/input, No such file or directory\n"},
      {"touch /dev/input", "scan dir failed for /dev/input\n"},
  };
  for (const auto& row : rows) {
    unlink(kStderrFile);
    ASSERT_EQ(system(row.command), 0);
    begin();
    EXPECT_EQ(end_status(), 1) << row.command;
    EXPECT_EQ(get(kStderrFile), row.said);
  }
}

TEST_F(TouchRecorder, LessThanAnEventIsFatal) {
  ASSERT_EQ(finger("plug event0 himax\n"), 0);
  record();
  ASSERT_EQ(finger("count event0 1 1\ntear event0\n"), 0);
  EXPECT_EQ(end_status(), 1);
  EXPECT_EQ(events(), Texts({numbered_line(1)}));
  EXPECT_EQ(get(kStderrFile), "could not get event\n");
}

TEST_F(TouchRecorder, GoesOnWithoutAFile) {
  ASSERT_EQ(finger("plug event0 himax\n"), 0);
  record("/data/nowhere");
  EXPECT_EQ(logged("E openLogFile:/data/nowhere/event.txt.mOutByteCount = 0\n"), 1);
  EXPECT_EQ(logged("E eventSaver openLogFile error"), 1);
  EXPECT_EQ(finger("count event0 1 100\ndrain event0\n"), 0);  // they are still read
}

}  // namespace
