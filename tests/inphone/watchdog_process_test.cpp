// The watchdog as a process: a child of the daemon, sibling of the other workers, controlled by
// signals.
#include <sys/resource.h>

#include <memory>

#include "catchers/catchers.h"
#include "catchers/watchdog.h"
#include "debuglog/modem_logger.h"
#include "selflog/log.h"
#include "tests/inphone/catchers.h"
#include "tests/support/sleep_texts.h"

namespace {

using namespace inphone;

constexpr char kCrashes[] = "/data/local/tmp/crashes";

void note_crash() {
  std::ofstream(kCrashes, std::ios::app) << "crash\n";
}

void sleep_and_say_so(int milliseconds) {
  LOG_ANDROID(ANDROID_LOG_DEBUG, "sleeps %d", milliseconds);
  sleep_ms(milliseconds);
}

// A verdict is due in every round.
int32_t rushing_now() {
  static int32_t now = 0;
  return now += 2000;
}

class WatchdogProcess : public Catchers {
 protected:
  void SetUp() override {
    Catchers::SetUp();
    s_watchdog_world.sleep = sleep_and_say_so;
    s_watchdog_world.crash = note_crash;
    put(kSystemSleepFile, system_sleep_text(1, 2));
    put(kRpmMasterFile, rpm_master_text(3, 4));
    put(kRpmhMasterFile, rpmh_master_text(5));
  }
  // Like start_mpss_dump_log(), with this test's world.
  static pid_t start() {
    mpss_monitor_running = true;
    const pid_t pid = fork_process(Group::kNew);
    if (pid == 0) {
      handle_mpss_stats();
      end_process(7);  // the loop ended by itself
    }
    return pid;
  }
  static int exit_status(pid_t pid) {
    int status = -1;
    EXPECT_EQ(wait_within(pid, 20000, &status), pid);
    return status;
  }
  static bool wait_for_log(const std::string& text) {
    return eventually([&] { return logged(text) > 0; });
  }
};

TEST_F(WatchdogProcess, BeforeADumpKnownWorkersGetTheirSignals) {
  unlink(kRpmMasterFile);  // no modem statistics: the processor is at fault
  unlink(kRpmhMasterFile);
  s_watchdog_world.now = rushing_now;
  s_watchdog_world.crash = [] {
    note_crash();
    end_process(0);
  };
  const struct {
    int32_t* remembered;  // null: no special worker
    int slot, signal;
  } rows[] = {
      {&fg_log_pid, 1, SIGKILL},    {nullptr, 2, SIGTERM},        {&qsee_log_pid, 5, SIGKILL},
      {&bsp_log_pid, 6, SIGKILL},   {&watch_fd_pid, 31, SIGKILL}, {&net_log_pid, 30, SIGTERM},
      {&qrtr_log_pid, 32, SIGTERM},
  };
  std::vector<std::unique_ptr<ParkedChild>> workers;
  for (const auto& row : rows) {
    workers.push_back(std::make_unique<ParkedChild>());
    s_debug_group[row.slot] = workers.back()->pid();
    if (row.remembered != nullptr) *row.remembered = workers.back()->pid();
  }
  s_debug_group[3] = getppid();  // a process that reuses a remembered pid
  const ParkedChild bystander;

  const pid_t watchdog = start();
  EXPECT_EQ(exit_status(watchdog), 0);
  for (size_t i = 0; i < std::size(rows); i++)
    EXPECT_EQ(workers[i]->end_signal(), rows[i].signal) << "slot " << rows[i].slot;
  EXPECT_TRUE(is_running(bystander.pid()));
  EXPECT_EQ(get(kCrashes), "crash\n");
  EXPECT_EQ(logged("E else echo c > /proc/sysrq-trigger!!!!"), 1);
  EXPECT_EQ(logged("E STOP PID  " + std::to_string(net_log_pid) + "  \n"), 0);
  EXPECT_EQ(logged("D wait debug pid over. status=0"), 8);  // none is its child
}

TEST_F(WatchdogProcess, TheAlarmEndsACaptureAndNothingElseDoes) {
  s_watchdog_world.now = rushing_now;
  s_watchdog_world.sleep = [](int) { end_process(0); };  // the grace period before the dump
  const pid_t watchdog = start();
  const std::string before = "D before pause catch_modem_log_pid = " + std::to_string(watchdog);
  ASSERT_TRUE(wait_for_log(before));
  EXPECT_EQ(prop(kModemStateProp), "1");
  for (const int sig : {SIGCHLD, SIGWINCH, SIGCONT, SIGCHLD}) {
    signal_process(watchdog, sig);
    EXPECT_EQ(wait_within(watchdog, 20, nullptr), 0);
  }
  EXPECT_EQ(prop(kModemStateProp), "1");
  EXPECT_EQ(logged("E if echo c > /proc/sysrq-trigger!!!!"), 0);
  signal_process(watchdog, SIGALRM);
  EXPECT_EQ(exit_status(watchdog), 0);
  EXPECT_EQ(prop(kModemStateProp), "0");
  EXPECT_EQ(logged("D after pause catch_modem_log_pid = " + std::to_string(watchdog)), 1);
  EXPECT_EQ(get(kCrashes), "");
}

// Each state logs a line, and lasts longer than the test.
TEST_F(WatchdogProcess, SigtermEndsItInEveryState) {
  const struct {
    const char* state;
    int32_t (*now)();
    bool captured_before, legacy_logger_on;
    const char* shown_by;  // the beginning of a line
  } rows[] = {
      {"idle", [] { return 1000; }, false, false, "D sleeps 1000"},
      {"starting the modem logger", rushing_now, false, false, "D prop_5g="},
      {"capturing", rushing_now, false, false, "D before pause"},
      {"before re-arming", rushing_now, false, true, "D sleeps 2000"},
      {"in the grace before a dump", rushing_now, true, false, "D sleeps 15000"},
  };
  for (const auto& row : rows) {
    s_watchdog_world.now = row.now;
    is_mpss_catch_modem = row.captured_before;
    property_set("persist.sys.zelka.diag_mdlog_use_legacy", row.legacy_logger_on ? "1" : "0");
    property_set(kLegacyModemStateProp, row.legacy_logger_on ? "1" : "0");
    const long before = logged_beginning(row.shown_by);
    const pid_t watchdog = start();
    ASSERT_TRUE(eventually([&] { return logged_beginning(row.shown_by) > before; })) << row.state;
    signal_process(watchdog, SIGTERM);
    EXPECT_EQ(exit_status(watchdog), 0) << row.state;
    for (const char* key : {kModemStateProp, kLegacyModemStateProp})
      EXPECT_NE(prop(key), "1") << row.state;
  }
  EXPECT_EQ(get(kCrashes), "");
}

// The alarm may come between any call of the loop and its check of errno.
TEST_F(WatchdogProcess, TheAlarmsHandlerKeepsErrno) {
  s_watchdog_world.now = [] {
    setprop(kModemStateProp, "1");
    const rlimit none = {0, 0};
    setrlimit(RLIMIT_NOFILE, &none);  // the handler's calls fail
    errno = ENOTTY;
    raise(SIGALRM);
    end_process(errno == ENOTTY ? 3 : 4);
    return 0;
  };
  EXPECT_EQ(WEXITSTATUS(exit_status(start())), 3);
}

TEST_F(WatchdogProcess, TheStartRoutineForksItAndStoresItsPid) {
  is_mpss_catch_modem = true;
  EXPECT_EQ(start_mpss_dump_log(kRun, "MPSSDump"), 0);
  EXPECT_EQ(workers(), std::vector<pid_t>{mpss_stats_pid});
  EXPECT_FALSE(is_mpss_catch_modem);
  EXPECT_TRUE(eventually([] { return comm_of(mpss_stats_pid) == ":debug-MPSSDump"; }));
  EXPECT_EQ(getpgid(mpss_stats_pid), mpss_stats_pid);
}

}  // namespace
