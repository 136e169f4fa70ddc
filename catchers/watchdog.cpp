#include "catchers/watchdog.h"

#include <cutils/properties.h>
#include <errno.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>

#include "base/local_time.h"
#include "base/process.h"
#include "base/text.h"
#include "base/thread.h"
#include "catchers/catchers.h"
#include "debuglog/logger_types.h"
#include "debuglog/modem_logger.h"
#include "debuglog/run.h"
#include "debuglog/workers.h"
#include "selflog/log.h"
#include "selflog/props.h"
#include "storage/flush.h"
#include "storage/shell.h"

std::atomic<bool> mpss_monitor_running{false};
bool is_mpss_catch_modem = false;
int32_t mpss_dump_count = 0;
int32_t last_check_time = -1;
int32_t baseline_time = -1;
SleepCounters s_sleep_baseline;

namespace {

constexpr char kLogSource[] = "commands";
constexpr char kLoop[] = "handle_mpss_stats";  // the loop's steps log under this name
constexpr char kNoServiceProp[] = "persist.sys.no.service";
constexpr char kStartIndProp[] = "persist.radio.start_ind";
constexpr int32_t kRoundSeconds = 600;
constexpr int32_t kBaselineSeconds = 3600;
constexpr unsigned kCaptureSeconds = 1200;
constexpr int kGraceMs = 15000;  // before the crash
constexpr int kRearmPauseMs = 2000;
constexpr int kIdleMs = 1000;

std::atomic<bool> s_alarm_ran{false};

int32_t boottime_seconds() {
  timespec now;
  clock_gettime(CLOCK_BOOTTIME, &now);
  return static_cast<int32_t>(now.tv_sec);
}

void set_alarm(unsigned seconds) {
  s_alarm_ran = false;
  alarm(seconds);
}

// Other signals do not end the wait, and the alarm cannot slip in before it.
void await_alarm() {
  ScopedSignalBlocker outside_sigsuspend(SIGALRM);
  while (!s_alarm_ran) sigsuspend(&outside_sigsuspend.before());
}

void on_watchdog_signal(int sig) {
  const int saved_errno = errno;
  const ScopedSignalHandler scope;
  sign_handler(sig);
  errno = saved_errno;
}

bool has_not_moved(int32_t now, int32_t before) {
  return now >= 0 && now == before;
}

void read_all_counters() {
  read_vmin_or_aosd_and_cxsd();
  read_numshutdowns_and_xo_count();
  read_sleep_count();
}

void take_baseline(int32_t now) {
  s_sleep_baseline = s_sleep_counters;
  baseline_time = now;
}

void log_counter(const char* name, int32_t now, int32_t before) {
  LOGD_AS(kLoop, "the %s is %d\n", name, now);
  LOGD_AS(kLoop, "the %s_prev is %d\n", name, before);
}

// Starts a modem log in a directory of its own, to be stopped by the alarm. Logs under the name
// `function`.
void capture_modem(const char* function) {
  char name[64];
  format_cut(name, "mpss_dump/%d", mpss_dump_count++);
  LOGE_AS(function, "start catcher_modem_log %s", name);
  catcher_modem_log(s_vendor_log_root_path, name);
  s_watchdog_world.set_alarm(kCaptureSeconds);
}

void handle_no_service_catch_modem_log() {
  LOGD("function invoked");
  capture_modem(__func__);
}

void serve_no_service(bool modem_logger_on) {
  if (is_mpss_catch_modem || get_string_prop(kNoServiceProp, "0") != "1") return;
  if (modem_logger_on) {
    LOGD_AS(kLoop, "ignore this request");
  } else {
    LOGD_AS(kLoop, "handle_no_service_catch_modem_log");
    handle_no_service_catch_modem_log();
  }
  property_set(kNoServiceProp, "0");
}

void start_capture() {
  is_mpss_catch_modem = true;
  LOGD_AS(kLoop, "the is_mpss_catch_modem(catch_modem_log_pid == 0) is %d\n", is_mpss_catch_modem);
  capture_modem(kLoop);
  LOGD_AS(kLoop, "before pause catch_modem_log_pid = %d", getpid());
  s_watchdog_world.await_alarm();
  LOGD_AS(kLoop, "after pause catch_modem_log_pid = %d", getpid());
  last_check_time = s_watchdog_world.now();
}

void extend_capture() {
  is_mpss_catch_modem = true;
  LOGD_AS(kLoop, "the is_mpss_catch_modem(catch_modem_log_pid != 0) is %d\n", is_mpss_catch_modem);
  s_watchdog_world.set_alarm(0);
  s_watchdog_world.sleep(kRearmPauseMs);
  s_watchdog_world.set_alarm(kCaptureSeconds);
  s_watchdog_world.await_alarm();
  last_check_time = s_watchdog_world.now();
}

// Ends the debug workers that this process knows: those of the types started before its own.
void end_known_workers() {
  const int32_t hard[] = {fg_log_pid, qsee_log_pid, bsp_log_pid, watch_fd_pid, mpss_stats_pid};
  int status = 0;
  for (int slot = 1; s_debug_group != nullptr && slot <= kGroupSlots; slot++) {
    const pid_t pid = s_debug_group[slot];
    if (pid < 1) continue;
    if (std::find(std::begin(hard), std::end(hard), pid) != std::end(hard)) {
      LOGE_AS(kLoop, "STOP PID  %d  \n", pid);
      signal_process(pid, SIGKILL);
    } else {
      signal_process(pid, SIGTERM);
    }
    LOGD_AS(kLoop, "kill s_debug_group, wait pid %d \n", pid);
    wait_for(pid, &status);
    LOGD_AS(kLoop, "wait debug pid over. status=%d", status);
    s_debug_group[slot] = 0;
  }
}

void act_on_stuck_processor(Verdict decided) {
  switch (decided) {
    case Verdict::kDumpAtOnce:
      LOGE_AS(kLoop, "else echo c > /proc/sysrq-trigger!!!!");
      end_known_workers();
      s_watchdog_world.crash();
      break;
    case Verdict::kDumpAfterGrace:
      LOGD_AS(kLoop, "will trigger dump");
      LOGE_AS(kLoop, "if echo c > /proc/sysrq-trigger!!!!");
      s_watchdog_world.sleep(kGraceMs);
      s_watchdog_world.crash();
      break;
    case Verdict::kExtendCapture:
      LOGD_AS(kLoop, "will catch modem log");
      extend_capture();
      break;
    case Verdict::kStartCapture:
      LOGD_AS(kLoop, "will catch modem log");
      start_capture();
      break;
  }
}

// Compares the counters, read at `now`, with the baseline, and acts.
void give_verdict(int32_t now, bool modem_logger_on) {
  const SleepCounters& is = s_sleep_counters;
  const SleepCounters& was = s_sleep_baseline;
  log_counter("cxsd_count", is.cxsd_count, was.cxsd_count);
  log_counter("aosd_count", is.aosd_count, was.aosd_count);
  log_counter("vmin_count", is.vmin_count, was.vmin_count);
  if (!is_ap_stuck(is, was)) {
    take_baseline(now);
    return;
  }
  log_counter("mpss_numshutdowns", is.mpss_numshutdowns, was.mpss_numshutdowns);
  log_counter("xo_count", is.xo_count, was.xo_count);
  log_counter("sleep_count", is.sleep_count, was.sleep_count);
  act_on_stuck_processor(judge(is_modem_stuck(is, was), is_mpss_catch_modem, modem_logger_on));
}

}  // namespace

WatchdogWorld s_watchdog_world = {boottime_seconds, sleep_ms, set_alarm, await_alarm,
                                  crash_for_dump};

bool is_round_due(int32_t last_check, int32_t now) {
  return last_check < 0 || now - last_check >= kRoundSeconds;
}

bool is_verdict_due(int32_t baseline, int32_t now) {
  return now - baseline >= kBaselineSeconds;
}

bool is_ap_stuck(const SleepCounters& now, const SleepCounters& baseline) {
  return has_not_moved(now.cxsd_count, baseline.cxsd_count) ||
         has_not_moved(now.aosd_count, baseline.aosd_count) ||
         has_not_moved(now.vmin_count, baseline.vmin_count);
}

bool is_modem_stuck(const SleepCounters& now, const SleepCounters& baseline) {
  return has_not_moved(now.mpss_numshutdowns, baseline.mpss_numshutdowns) ||
         has_not_moved(now.xo_count, baseline.xo_count) ||
         has_not_moved(now.sleep_count, baseline.sleep_count);
}

Verdict judge(bool modem_stuck, bool captured_before, bool modem_logger_on) {
  if (!modem_stuck) return Verdict::kDumpAtOnce;
  if (modem_logger_on) return Verdict::kExtendCapture;
  return captured_before ? Verdict::kDumpAfterGrace : Verdict::kStartCapture;
}

void crash_for_dump() {
  wait_for_moves();  // what a stop has moved is not on storage before its flush
  run_shell("echo c > /proc/sysrq-trigger");
}

void watch_once() {
  const bool modem_logger_on = get_string_prop(kLegacyModemStateProp, "0") == "1";
  serve_no_service(modem_logger_on);
  const int32_t now = s_watchdog_world.now();
  if (!is_round_due(last_check_time, now)) {
    s_watchdog_world.sleep(kIdleMs);
    return;
  }
  last_check_time = now;
  if (baseline_time < 0) {
    read_all_counters();
    take_baseline(now);
    return;
  }
  const int32_t verdict_time = s_watchdog_world.now();
  read_all_counters();
  if (is_verdict_due(baseline_time, verdict_time)) give_verdict(verdict_time, modem_logger_on);
}

void* handle_mpss_stats() {
  LOGD("function invoked");
  // signal(SIGKILL) fails; kept, harmless.
  for (const int sig : {SIGALRM, SIGTERM, SIGKILL}) signal(sig, on_watchdog_signal);
  while (mpss_monitor_running) watch_once();
  return nullptr;
}

void sign_handler(int sig) {
  LOGD("sign_handler the time is %d", static_cast<int>(time(nullptr)));
  LOGD("this sign is %d", sig);
  if (sig == SIGALRM) {
    s_alarm_ran = true;
    stop_modem_log();
  } else if (sig == SIGTERM) {
    stop_modem_log();
    mpss_monitor_running = false;
    end_process(0);
  }
}

void stop_mpss_watchdog() {
  mpss_monitor_running = false;
  s_sleep_counters = SleepCounters();
  s_sleep_baseline = SleepCounters();
}

int start_mpss_dump_log(const char* /*log_dir*/, const char* name) {
  LOGD("function invoked");
  mpss_monitor_running = true;
  is_mpss_catch_modem = false;
  property_set(kStartIndProp, "on");
  const pid_t pid = fork_worker(__func__);
  if (pid == -1) return -1;
  if (pid == 0) {
    set_process_name(name);
    handle_mpss_stats();
    end_process(0);
  }
  mpss_stats_pid = pid;
  LOGE("fork child process, pid:%d, handle_mpss_stats \n", pid);
  return 0;
}

void stop_mpss_dump_log() {
  LOGD("function invoked");
  if (!has_logger_type(kTypeMpssDump)) return;
  LOGD("stop mpss dump log");
  property_set(kStartIndProp, "off");
}

int no_service_catch_modem_log() {
  LOGD("function invoked");
  if (!is_logger_enabled() || !has_logger_type(kTypeMpssDump)) return -1;
  LOGD("set NO_SERVICE_CATCH_MODEM");
  property_set(kNoServiceProp, "1");
  return 0;
}
