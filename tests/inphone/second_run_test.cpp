// What a stop must reset for the next run, and what a process takes over after another one has
// started a run.
#include <signal.h>

#include <thread>

#include "base/deferred_signals.h"
#include "catchers/catchers.h"
#include "debuglog/commands.h"
#include "debuglog/harvest.h"
#include "debuglog/logcat.h"
#include "debuglog/vendor_moves.h"
#include "feedback/feedback.h"
#include "selflog/props.h"
#include "tests/inphone/catchers.h"

namespace {

using namespace inphone;

int s_handled = 0;

class SecondRun : public Catchers {
 protected:
  void SetUp() override {
    Catchers::SetUp();
    setprop("persist.sys.logger.enable", "on");
    setprop(kVendorCommonDoneProp, "1");  // no wait for the vendor
    set_signal_hooks([](int) { s_handled++; }, [] {});
  }
  // Records a signal and runs `act`, during which it is handled or not; afterwards it is in any
  // case.
  static void with_deferred_signal(const char* what, bool during,
                                   const std::function<void()>& act) {
    s_handled = 0;
    record_signal(SIGUSR2);
    act();
    EXPECT_EQ(s_handled, during ? 1 : 0) << what;
    safe_point();
    EXPECT_EQ(s_handled, 1) << what;
    EXPECT_EQ(s_request_pid, 0) << what;
  }
};

TEST_F(SecondRun, HasNothingOfTheFirstOne) {
  Texts counts;
  for (const auto& [types, count] : {std::pair{"65537", "39"}, std::pair{"1", "9"}}) {
    setprop("persist.sys.qtrlog.enable", "1");
    setprop(kTypeProp, types);
    setprop(kEnableProp, "on");
    with_deferred_signal("start", false, [] { start_debug_log(); });
    counts.push_back(count);
    EXPECT_TRUE(eventually([&] { return counts_of_main() == counts; })) << types;
    EXPECT_TRUE(eventually([] { return s_self_log_collector_pid > 0; })) << types;
    const pid_t dead = s_debug_vesk_group[3].pid;
    signal_group(dead, SIGKILL);
    wait_within(dead, 20000, nullptr);
    update_logcat_log(dead);
    EXPECT_GT(s_newlog_group[3].pid, 0) << types;
    EXPECT_EQ(qtrlog_running, true) << types;
    setprop(kEnableProp, "off");
    with_deferred_signal("stop", false, [] { stop_debug_log(); });
    for (const LogcatRow& row : s_debug_vesk_group) EXPECT_EQ(row.pid, 0) << types << row.buffer;
    for (const ReplacementRow& row : s_newlog_group) EXPECT_EQ(row.pid, 0) << types << row.buffer;
    EXPECT_EQ(workers(), std::vector<pid_t>()) << types;
    EXPECT_EQ(s_self_log_collector_pid, 0) << types;
    EXPECT_EQ(qtrlog_running, false) << types;
  }
  const size_t before = log_texts().size();
  stop_debug_log();
  const Texts texts = log_texts();
  for (size_t i = before; i < texts.size(); i++) {
    for (const char* process : {"D wait s_", "D kill log collector", "E STOP PID"})
      EXPECT_NE(texts[i].rfind(process, 0), 0u) << texts[i];
  }
}

TEST_F(SecondRun, ASignalIsHandledWhileARequestWaitsForItsChild) {
  with_deferred_signal("report", true, [] { copy_system_propertie("/data", ""); });
  with_deferred_signal("dump", true, [] { get_general_log("/data"); });
  setprop("late", "");
  with_deferred_signal("vendor", true, [] { wait_vendor_mv_action_done("late", 1); });
}

// Only the shared page publishes another process's run: anyone may set a property.
TEST_F(SecondRun, OfAnotherProcessIsTakenOver) {
  share_current_run();
  setprop(kStorePathProp, "/sdcard/zelkalog/9#01-02_03-04-05");
  for (const bool taken : {false, true}) {
    enter_run("1#run");
    ParkedChild worker({false, true}), logcat({false, true}), replacement({false, true});
    s_newlog_group[0].pid = replacement.pid();
    s_debug_group[1] = worker.pid();
    s_debug_vesk_group[0].pid = logcat.pid();
    const auto start_another = [] {
      enter_run("2#run");
      return 0;
    };
    if (taken) {
      EXPECT_EQ(status_in_child(start_another), 0);
    }
    end_superseded_workers();
    const std::string run = taken ? "2#run" : "1#run";
    EXPECT_EQ(s_log_dir_name, run);
    EXPECT_EQ(s_log_store_path, "/data/misc/zelkalog/" + run);
    EXPECT_EQ(s_vendor_log_root_path, "/data/vendor/zelkalog/common/" + run);
    EXPECT_EQ(s_debug_group[1], taken ? 0 : worker.pid());
    EXPECT_EQ(s_debug_vesk_group[0].pid, taken ? 0 : logcat.pid());
    EXPECT_EQ(is_running(worker.pid()), !taken);
    EXPECT_EQ(is_running(logcat.pid()), !taken);
    EXPECT_EQ(is_running(replacement.pid()), !taken);
  }
}

// 100 ms each; a property that is set later ends them.
TEST_F(SecondRun, TheVendorIsPolledTenTimesASecondOfItsBudget) {
  set_signal_hooks([](int sig) { s_handled++, record_signal(sig); }, [] {});
  record_signal(SIGUSR2);  // counts the safe points: one behind each poll
  setprop(kVendorCommonDoneProp, "0");
  setprop(kVendorWifiDoneProp, "1");
  const std::tuple<const char*, int, int> rows[] = {{"1", 0, 2}, {"2", 14, 1}, {"64", 13, 2}};
  for (const auto& [types, since_request_s, seconds] : rows) {
    setprop(kTypeProp, types);
    s_handled = 0;
    s_vendor_mv_start_secs = time(nullptr) - since_request_s;
    const size_t before = log_texts().size();
    wait_vendor_mv_actions_done();
    int budget = -1;  // one less if a second has begun meanwhile
    for (const std::string& text : texts_since(log_texts(), before))
      sscanf(text.c_str(), "D wait timeout %ds", &budget);
    EXPECT_TRUE(budget == seconds || budget == seconds - 1) << types << " " << budget;
    EXPECT_EQ(s_handled, budget * 10) << types;
  }
}

// The vendor's time ends when the run has been moved; the wifi logs get one more second.
TEST_F(SecondRun, WifiLogsOfALateVendorStillArrive) {
  setprop(kTypeProp, "64");
  setprop(kStorePathProp, "/sdcard/zelkalog/1#01-02_03-04-05");
  put("/sdcard/zelkalog/1#01-02_03-04-05/cnss_fw_logs_1", "late");
  setprop(kVendorCommonDoneProp, "0");
  s_vendor_mv_start_secs = time(nullptr) - 20;
  std::thread vendor([] {
    eventually([] { return logged("D left wait timeout 1s") == 1; });
    setprop(kVendorWifiDoneProp, "1");
  });
  wait_vendor_mv_actions_done();
  vendor.join();
  EXPECT_EQ(logged("D wait timeout 0s"), 1);
  for (const char* text : {"wait timeout 0s", "left wait timeout 1s"})
    EXPECT_EQ(logged_by("wait_vendor_mv_actions_done", text), 1) << text;
  EXPECT_EQ(logged_beginning("D start_secs="), 1);
  EXPECT_EQ(logged(std::string("W wait prop ") + kVendorWifiDoneProp + " timeout."), 0);
  EXPECT_EQ(get("/sdcard/zelkalog/1#01-02_03-04-05/wlan_logs/cnss_fw_logs_1"), "late");
}

}  // namespace
