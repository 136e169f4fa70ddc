// The name of the current run: its grammar, and the page shared by the processes.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include "debuglog/run.h"
#include "model/run_name.h"
#include "phone/wait.h"

namespace {

TEST(RunName, IsAcceptedExactlyAsItIsWritten) {
  const std::pair<const char*, int32_t> rows[] = {
      {"12#03-07_14-05-09", 12},
      {"2147483647#12-31_23-59-59", 2147483647},
      {"03-07_14-05-09", 0},
      {"2147483648#03-07_14-05-09", -1},
      {"0#03-07_14-05-09", -1},
      {"-1#03-07_14-05-09", -1},
      {"+1#03-07_14-05-09", -1},
      {"012#03-07_14-05-09", -1},
      {"#03-07_14-05-09", -1},
      {" 1#03-07_14-05-09", -1},
      {"1#03-07_14-05-09 ", -1},
      {"1#03-07_14-05-09/x", -1},
      {"1#03-07_14-05-0", -1},
      {"1#03-07_14-05-0x", -1},
      {"1#03-07 14-05-09", -1},
      {"1##03-07_14-05-09", -1},
      {"1#2#03-07_14-05-09", -1},
      {"9#;cd data;touch x", -1},
      {"1#", -1},
      {".", -1},
      {"", -1},
  };
  for (const auto& [name, number] : rows) {
    EXPECT_EQ(run_number(name), number) << name;
    EXPECT_EQ(is_stored_run(std::string("/sdcard/zelkalog/") + name), number >= 0) << name;
    EXPECT_FALSE(is_stored_run(std::string("/data/misc/zelkalog/") + name)) << name;
  }
  EXPECT_FALSE(is_stored_run("/sdcard/zelkalog/../zelkalog/12#03-07_14-05-09"));
}

// The page belongs to the process, so the test runs in a forked "daemon".
void in_daemon(void (*body)()) {
  const pid_t pid = fork();
  if (pid == 0) {
    alarm(60);
    body();
    _exit(::testing::Test::HasFailure() ? 1 : 0);
  }
  int status = -1;
  waitpid(pid, &status, 0);
  EXPECT_EQ(status, 0) << "see above";
}

constexpr char kFirst[] = "1#11-21_10-00-00", kOther[] = "2000000000#11-21_10-00-01";

template <typename Body>
pid_t fork_monitor(Body body) {
  const pid_t pid = fork();
  if (pid == 0) {
    body();
    _exit(0);
  }
  return pid;
}

TEST(CurrentRun, IsTakenOverFromTheProcessThatHasStartedIt) {
  in_daemon([] {
    share_current_run();
    EXPECT_EQ(current_run_name(), "");
    EXPECT_FALSE(follow_current_run());
    enter_run(kFirst);
    EXPECT_FALSE(follow_current_run());
    const pid_t monitor = fork_monitor([] { enter_run(kOther); });
    waitpid(monitor, nullptr, 0);
    EXPECT_EQ(current_run_name(), kOther);
    EXPECT_STREQ(s_log_dir_name, kFirst);  // reading changes nothing
    EXPECT_TRUE(follow_current_run());
    EXPECT_STREQ(s_log_dir_name, kOther);
    EXPECT_EQ(s_log_store_path, std::string("/data/misc/zelkalog/") + kOther);
    EXPECT_EQ(s_vendor_log_root_path, std::string("/data/vendor/zelkalog/common/") + kOther);
    EXPECT_FALSE(follow_current_run());
  });
}

TEST(CurrentRun, IsAWholeNameWheneverItsWriterIsKilled) {
  in_daemon([] {
    share_current_run();
    enter_run(kFirst);
    for (int i = 0; i < 200; i++) {
      const pid_t monitor = fork_monitor([] {
        for (bool other = false;; other = !other) enter_run(other ? kOther : kFirst);
      });
      for (int k = 0; k < 1000; k++) {  // during writes
        const std::string name = current_run_name();
        ASSERT_TRUE(name == kFirst || name == kOther) << name;
      }
      signal_one(monitor, SIGKILL);
      waitpid(monitor, nullptr, 0);
      const std::string name = current_run_name();
      ASSERT_TRUE(name == kFirst || name == kOther) << name;
    }
  });
}

}  // namespace
