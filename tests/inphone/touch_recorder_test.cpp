// The recorder's output: lines, rotation, order, cost, start and end.
#include <sys/time.h>

#include "tests/inphone/touch.h"

namespace {

using namespace inphone;

constexpr char kFirst[] = "          ";
constexpr char kBlanks[] = "            ";  // after a decimal value

// Text of `numbered` events.
std::string numbered_line(int number) {
  return kFirst + ("EV_ABS       ABS_X                " + std::to_string(number)) + kBlanks;
}

TEST_F(TouchRecorder, StampsTheTimeOfReading) {
  setenv("TZ", "XYZ-5:45", 1);  // an offset that is no default
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

// Two recordings in one process: the later one has new tables and a new file.
TEST_F(TouchRecorder, ASignalLetsAStopTakeEffect) {
  ASSERT_EQ(finger("plug event0 himax\n"), 0);
  recorder_ = fork();
  if (recorder_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    signal(SIGUSR1, [](int) { stop_tp_log(); });  // poll() returns without an event
    for (const char* dir : {kTouchDir, "/data/later"}) {
      char output[256];
      snprintf(output, sizeof(output), "%s", dir);
      mkdir(dir, 0777);
      start_tp_log();
      gettouchlog(output);
    }
    _exit(0);
  }
  ASSERT_TRUE(eventually([] { return logged("E gettouchlog, nfds:2") == 1; }));
  ASSERT_EQ(finger("count event0 1 1\ndrain event0\n"), 0);
  wait_for_events(1);
  ASSERT_EQ(signal_process(recorder_, SIGUSR1), 0);
  ASSERT_TRUE(eventually([] { return logged("E gettouchlog, nfds:2") == 2; }));
  ASSERT_EQ(finger("count event0 3 1\n"), 0);
  EXPECT_TRUE(eventually(
      [] { return without_stamps(get("/data/later/event.txt")) == Texts({numbered_line(3)}); }));
  EXPECT_EQ(events(), Texts({numbered_line(1)}));
}

TEST_F(TouchRecorder, EndsAtOnceWithOneAfterAFatalError) {
  const struct {
    const char* command;  // breaks /dev/input
    const char* message;
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
    EXPECT_EQ(get(kStderrFile), row.message);
  }
}

TEST_F(TouchRecorder, LessThanAnEventIsFatal) {
  ASSERT_EQ(finger("plug event0 himax\n"), 0);
  record();
  ASSERT_EQ(finger("count event0 1 1\ntear event0\n"), 0);
  EXPECT_EQ(end_status(), 1);
  EXPECT_EQ(events(), Texts({numbered_line(1)}));
  EXPECT_EQ(get(kStderrFile), "could not get event\n");
  // Without a file events are read and dropped; nothing is recorded unless requested.
  record("/data/nowhere");
  EXPECT_EQ(logged("E eventSaver openLogFile error"), 1);
  EXPECT_EQ(finger("count event0 1 100\ndrain event0\n"), 0);
  TearDown();
  begin(kTouchDir, false);
  EXPECT_EQ(end_status(), 0);
}

}  // namespace
