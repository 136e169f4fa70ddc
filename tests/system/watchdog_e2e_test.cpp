// The watchdog of the unmodified daemon, over hours that pass when the test says so.
#include <glob.h>
#include <gtest/gtest.h>

#include "phone/host/daemon.h"
#include "tests/support/sleep_texts.h"

namespace {

constexpr int kMpssDump = 0x400;
constexpr char kCrash[] = "echo c > /proc/sysrq-trigger";
constexpr char kClock[] = "/data/local/tmp/clock";  // seconds to add to every clock
constexpr char kModemState[] = "sys.zelka.diag_mdlog_over_qdss_state";

// Debian keeps it below its architecture's directory.
std::string faketime_library() {
  glob_t found;
  const int result = glob("/usr/lib/*/faketime/libfaketime.so.1", 0, nullptr, &found);
  const std::string path = result == 0 ? found.gl_pathv[0] : "";
  globfree(&found);
  EXPECT_FALSE(path.empty()) << "libfaketime is not installed";
  return path;
}

class WatchdogInPhone : public ::testing::Test {
 protected:
  // In one step: a reader that saw an empty file would be thrown back by hours.
  void move_clock(int seconds) {
    const std::string next = std::string(kClock) + ".new";
    phone_.write(next, "+" + std::to_string(seconds));
    EXPECT_EQ(rename(phone_.inside(next).c_str(), phone_.inside(kClock).c_str()), 0);
  }
  // The processor's counters never move here.
  void show_statistics(int modem) {
    phone_.write(kSystemSleepFile, system_sleep_text(12, 13));
    phone_.write(kRpmMasterFile, rpm_master_text(modem, modem));
    phone_.write(kRpmhMasterFile, rpmh_master_text(modem));
  }
  // Starts the watchdog and waits for its baseline.
  void start(int mask) {
    ASSERT_TRUE(settled(phone_));
    phone_.run({"/system/bin/rm", kRpmStatsFile, kSystemSleepFile});
    show_statistics(100);
    ASSERT_EQ(start_logging(phone_, mask), 0);
    ASSERT_TRUE(await("Sleep Count is 100"));
    const std::vector<PhoneProcess> found = phone_.named(":debug-MPSSDump");
    ASSERT_EQ(found.size(), 1u);
    watchdog_ = found[0].pid;
  }
  bool await(const std::string& line, int limit_ms = kOwedMs) {
    return eventually([&] { return count_lines(phone_, line) > 0; }, limit_ms);
  }
  Phone phone_{{"--env", "LD_PRELOAD=" + faketime_library(), "--env",
                std::string("FAKETIME_TIMESTAMP_FILE=") + kClock, "--env", "FAKETIME_NO_CACHE=1",
                "--env", "FAKETIME_DISABLE_SHM=1", "--env",
                "ASAN_OPTIONS=verify_asan_link_order=0"}};
  pid_t watchdog_ = 0;
};

TEST_F(WatchdogInPhone, AStuckModemIsCapturedAndTheNextTimeThePhoneIsCrashed) {
  start(kMpssDump);
  move_clock(3700);
  ASSERT_TRUE(await("before pause catch_modem_log_pid = "));
  const std::string dump = phone_.getprop("sys.harrowmossd.diag_mdlog_path");
  EXPECT_EQ(dump, "/data/vendor/zelkalog/common/" + run_name(phone_) + "/mpss_dump/0");
  EXPECT_EQ(phone_.getprop(kModemState), "1");
  EXPECT_TRUE(eventually([&] { return phone_.exists(dump + "/diag_log_0000.qmdl"); }));

  ASSERT_TRUE(phone_.signal(watchdog_, SIGALRM));  // as 20 minutes later
  ASSERT_TRUE(await("after pause catch_modem_log_pid = "));
  EXPECT_EQ(phone_.getprop(kModemState), "0");

  move_clock(3700 + 700);
  ASSERT_TRUE(await("if echo c > /proc/sysrq-trigger!!!!"));
  EXPECT_EQ(commands_of(phone_, watchdog_).back().find("cp "), 0u);  // the mask file's; not yet
  ASSERT_TRUE(
      eventually([&] { return commands_of(phone_, watchdog_).back() == kCrash; }, kTimerMs));
  // The phone goes on where the kernel has no trigger, or a plain file in its place.
  EXPECT_EQ(phone_.read("/dev/bench/sysrq"), phone_.exists("/proc/sysrq-trigger") ? "c\n" : "");
  EXPECT_EQ(stop_logging(phone_), 0);
  EXPECT_TRUE(eventually_childless(phone_));
}

}  // namespace
