#include "catchers/watchdog.h"

#include "catchers/catchers.h"
#include "debuglog/modem_logger.h"
#include "selflog/props.h"
#include "storage/flush.h"
#include "tests/inphone/catchers.h"
#include "tests/support/sleep_texts.h"

namespace {

using namespace inphone;

constexpr char kNoServiceProp[] = "persist.sys.no.service";
constexpr char kModemPathProp[] = "sys.harrowmossd.diag_mdlog_path";

// ---- A world with a simulated clock. ----

int32_t s_now = 0;
Texts s_events;  // actions of the watchdog, in order

void fake_sleep(int milliseconds) {
  s_events.push_back("sleep " + std::to_string(milliseconds));
  s_now += milliseconds / 1000;
}
void fake_set_alarm(unsigned seconds) {
  s_events.push_back("alarm " + std::to_string(seconds));
}
void fake_await_alarm() {
  s_events.push_back("await");
  s_now += 1200;
  sign_handler(SIGALRM);
}
void fake_crash() {
  s_events.push_back("crash");
}

// The kernel's counters, moved by the test.
struct Kernel {
  int aosd = 10, cxsd = 20, xo = 30, shutdowns = 40, sleeps = 50;
  void show() const {
    put(kSystemSleepFile, system_sleep_text(aosd, cxsd));
    put(kRpmMasterFile, rpm_master_text(xo, shutdowns));
    put(kRpmhMasterFile, rpmh_master_text(sleeps));
  }
  void processor_sleeps() { aosd++, cxsd++; }
};

class Watchdog : public Catchers {
 protected:
  void SetUp() override {
    Catchers::SetUp();
    s_watchdog_world = {[] { return s_now; }, fake_sleep, fake_set_alarm, fake_await_alarm,
                        fake_crash};
    s_now = 5000;
    mpss_monitor_running = true;
    kernel_.show();
  }
  // Runs a round of the loop `seconds` after the last one; returns its actions.
  Texts turn_after(int seconds) {
    s_now += seconds;
    kernel_.show();
    s_events.clear();
    watch_once();
    return s_events;
  }
  // A baseline that is an hour old in the next round.
  void take_baseline() {
    turn_after(0);
    s_now += 3600;
  }

  Kernel kernel_;
};

const Texts kIdle = {"sleep 1000"};
const Texts kGrace = {"sleep 15000", "crash"};
const Texts kCapture = {"alarm 1200", "await"};
const Texts kExtend = {"alarm 0", "sleep 2000", "alarm 1200", "await"};

TEST_F(Watchdog, APhoneThatSleepsGetsANewBaseline) {
  take_baseline();
  kernel_.processor_sleeps();
  EXPECT_EQ(turn_after(0), Texts());
  EXPECT_EQ(baseline_time, 8600);
  EXPECT_EQ(s_sleep_baseline.aosd_count, 11);
  EXPECT_EQ(s_sleep_baseline.cxsd_count, 21);
  EXPECT_EQ(texts_since(log_texts(), log_texts().size() - 6),
            (Texts{"D the cxsd_count is 21\n", "D the cxsd_count_prev is 20\n",
                   "D the aosd_count is 11\n", "D the aosd_count_prev is 10\n",
                   "D the vmin_count is -1\n", "D the vmin_count_prev is -1\n"}));
  EXPECT_EQ(turn_after(600), Texts());  // judged again an hour later
  EXPECT_EQ(baseline_time, 8600);
}

TEST_F(Watchdog, AStuckModemIsCapturedFirstAndCrashedNext) {
  take_baseline();
  const PropertiesSince since;
  EXPECT_EQ(turn_after(0), kCapture);
  EXPECT_TRUE(is_mpss_catch_modem);
  EXPECT_EQ(mpss_dump_count, 1);
  EXPECT_EQ(prop(kModemPathProp), std::string(kVendorRun) + "/mpss_dump/0");
  EXPECT_TRUE(exists(std::string(kVendorRun) + "/mpss_dump/0"));
  const Texts sets = since.sets();
  EXPECT_EQ(std::count(sets.begin(), sets.end(), std::string(kModemStateProp) + "=1"), 1);
  EXPECT_EQ(sets.back(), std::string(kModemStateProp) + "=0");
  EXPECT_EQ(last_check_time, s_now);  // 600 s after the capture
  for (const char* text : {"D the xo_count is 30\n", "D the sleep_count_prev is 50\n",
                           "D the is_mpss_catch_modem(catch_modem_log_pid == 0) is 1\n"})
    EXPECT_EQ(logged(text), 1) << text;
  EXPECT_EQ(logged_by("handle_mpss_stats", "start catcher_modem_log mpss_dump/0"), 1);

  EXPECT_EQ(turn_after(599), kIdle);
  EXPECT_EQ(turn_after(0), kGrace);
  EXPECT_EQ(logged("D will trigger dump"), 1);
  EXPECT_EQ(logged("E if echo c > /proc/sysrq-trigger!!!!"), 1);
  EXPECT_EQ(baseline_time, 5000);  // the baseline stays after the dump
  EXPECT_EQ(turn_after(600), kGrace);
}

TEST_F(Watchdog, AModemThatRecoversBetweenTheVerdictsIsNotCrashed) {
  take_baseline();
  EXPECT_EQ(turn_after(0), kCapture);
  kernel_.processor_sleeps();
  EXPECT_EQ(turn_after(600), Texts());
  EXPECT_TRUE(is_mpss_catch_modem);  // armed for good
  EXPECT_EQ(turn_after(3600), kGrace);
}

TEST_F(Watchdog, WithTheOlderModemLoggerOnItOnlyExtendsTheCapture) {
  property_set("persist.sys.zelka.diag_mdlog_use_legacy", "1");
  take_baseline();
  for (int round = 0; round < 4; round++) {
    property_set(kLegacyModemStateProp, "1");
    EXPECT_EQ(turn_after(600), kExtend) << round;
    EXPECT_EQ(prop(kLegacyModemStateProp), "0");  // the alarm stopped it
  }
  EXPECT_EQ(logged("D the is_mpss_catch_modem(catch_modem_log_pid != 0) is 1\n"), 4);
  EXPECT_EQ(mpss_dump_count, 0);
  EXPECT_EQ(turn_after(600), kGrace);  // off now, with a capture before
}

// ---- No-service requests. ----

TEST_F(Watchdog, NoServiceRequests) {
  const struct {
    const char *request, *logger;
    bool captured_before;
    const char* left;  // of the request
    Texts events;
    const char* logged;
  } rows[] = {
      {"1", "0", false, "0", {"alarm 1200", "sleep 1000"}, "D handle_no_service_catch_modem_log"},
      {"1", "1", false, "0", kIdle, "D ignore this request"},
      {"1", "10", false, "0", {"alarm 1200", "sleep 1000"}, "D handle_no_service_catch_modem_log"},
      {"1", "0", true, "1", kIdle, nullptr},  // neither served nor reset
      {"1", "1", true, "1", kIdle, nullptr},
      {"11", "0", false, "11", kIdle, nullptr},
  };
  turn_after(0);
  for (const auto& row : rows) {
    property_set(kNoServiceProp, row.request);
    property_set(kLegacyModemStateProp, row.logger);
    is_mpss_catch_modem = row.captured_before;
    const long before = row.logged != nullptr ? logged(row.logged) : 0;
    EXPECT_EQ(turn_after(1), row.events) << row.request << row.logger << row.captured_before;
    EXPECT_EQ(prop(kNoServiceProp), row.left);
    EXPECT_TRUE(row.logged == nullptr || logged(row.logged) == before + 1) << row.logged;
  }
  for (const char* text : {"start catcher_modem_log mpss_dump/0", "function invoked"})
    EXPECT_GE(logged_by("handle_no_service_catch_modem_log", text), 1) << text;
  EXPECT_EQ(mpss_dump_count, 2);
  // A directory of its own.
  EXPECT_EQ(prop(kModemPathProp), std::string(kVendorRun) + "/mpss_dump/1");
  EXPECT_FALSE(is_mpss_catch_modem);  // this capture does not arm
}

TEST_F(Watchdog, RequestsAreRecordedOnlyWhileItRuns) {
  const struct {
    const char *enable, *types;
    int result;
    const char* recorded;
  } rows[] = {
      {"onx", "32767", 0, "1"},
      {"on", "1", -1, "-"},
      {"On", "1024", -1, "-"},
  };
  for (const auto& row : rows) {
    property_set(kEnableProp, row.enable);
    property_set(kTypeProp, row.types);
    property_set(kNoServiceProp, "-");
    EXPECT_EQ(no_service_catch_modem_log(), row.result) << row.enable << " " << row.types;
    EXPECT_EQ(prop(kNoServiceProp), row.recorded);
  }
}

// ---- The real world. ----

TEST(WatchdogWorld, HasAClockThatCountsSleepAndCrashesThePhone) {
  timespec boot;
  clock_gettime(CLOCK_BOOTTIME, &boot);
  EXPECT_GE(s_watchdog_world.now(), boot.tv_sec);
  EXPECT_LE(s_watchdog_world.now(), boot.tv_sec + 20);
  s_watchdog_world.crash();
  EXPECT_EQ(shell_commands(), Texts{"echo c > /proc/sysrq-trigger"});
  // A regular file masks the trigger where the kernel has one.
  EXPECT_EQ(get("/dev/bench/sysrq"), exists("/proc/sysrq-trigger") ? "c\n" : "");
}

// Moved files reach storage only with the flush.
TEST(WatchdogWorld, ItsCrashWaitsForAMove) {
  creat_dir("/data/misc/zelkalog");
  int ready[2];
  ASSERT_EQ(pipe2(ready, O_CLOEXEC), 0);
  const pid_t mover = fork_process(Group::kInherit);
  if (mover == 0) {
    const MoveLock lock;
    (void)!write(ready[1], "x", 1);
    sleep_ms(500);
    put("/data/flushed", "");
    _exit(0);
  }
  char byte;
  ASSERT_EQ(read(ready[0], &byte, 1), 1);
  crash_for_dump();
  EXPECT_TRUE(exists("/data/flushed"));
  EXPECT_EQ(shell_commands(), Texts{"echo c > /proc/sysrq-trigger"});
  wait_for(mover, nullptr);
}

TEST_F(Watchdog, TheStopClearsTheCounters) {
  take_baseline();
  stop_mpss_watchdog();
  EXPECT_FALSE(mpss_monitor_running);
  for (const SleepCounters& counters : {s_sleep_counters, s_sleep_baseline}) {
    for (const int32_t value :
         {counters.vmin_count, counters.aosd_count, counters.cxsd_count, counters.mpss_numshutdowns,
          counters.xo_count, counters.sleep_count})
      EXPECT_EQ(value, -1);
  }
}

}  // namespace
