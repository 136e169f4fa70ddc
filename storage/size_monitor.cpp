#include "storage/size_monitor.h"

#include <cutils/properties.h>
#include <dirent.h>
#include <errno.h>
#include <limits.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>

#include "base/local_time.h"
#include "base/process.h"
#include "base/scoped.h"
#include "base/text.h"
#include "model/data_room.h"
#include "model/masks.h"
#include "model/process_names.h"
#include "model/properties.h"
#include "selflog/log.h"
#include "selflog/props.h"
#include "storage/flush.h"
#include "storage/linked_move.h"
#include "storage/preallocation.h"
#include "storage/shell.h"
#include "storage/store.h"
#include "storage/utils.h"

std::atomic<bool> s_logsize_monitor{false};
std::atomic<int32_t> s_logsize_monitor_pid{-1};

namespace {

constexpr char kLogSource[] = "utils";
constexpr int kCycleMs = 5000;
int32_t s_living_monitor_pid = -1;  // main process
int (*s_stop_logging)() = nullptr;
int (*s_start_logging)() = nullptr;
std::string (*s_current_run)() = nullptr;

// The monitor's state, shared with its signal handler.
std::atomic<bool> s_is_deleting{false};
std::atomic<int32_t> s_pending_pid{-1};  // own pid: SIGUSR1 came during a deletion

// State kept between cycles.
struct MonitorState {
  int quota_gib;
  int oldest;  // never reset: a cycle that finds no numbered directory keeps the last one's
  RestartRecord restart;
  int64_t total_bytes;  // of both trees, in this cycle
};

enum class Next { kWait, kLeave };

Next leave() {
  s_logsize_monitor = false;
  s_is_deleting = false;
  return Next::kLeave;
}

Next deletion_done() {
  s_is_deleting = false;
  return Next::kWait;
}

void delete_trees() {
  delete_dir(kStoreContents);
  delete_dir(kWorkingContents);
  remove_move_trees(kWorkingDir, nullptr);
}

// Removes the run `name` of `dir`. A name that is too long for a command is removed without a
// shell; otherwise one planted name would end all eviction.
void remove_run(const char* dir, const std::string& name) {
  const std::string path = std::string(dir) + name;
  remove_move_trees(kWorkingDir, name.c_str());
  if (command_fits(ShellCommand::kDeleteDir, path.c_str(), nullptr)) {
    delete_dir(path.c_str());
  } else {
    LOGW_AS("monitorLogSizeThread", "name too long for a command: %s", path.c_str());
    remove_tree(path.c_str());
  }
}

void log_sizes(const SizeReading& reading, const SizeVerdict& verdict, bool modem) {
  const float quota = static_cast<float>(reading.quota_gib);
  const char* name = "monitorLogSizeThread";
  LOGD_AS(name, "store dir: logsize = %f,  size_store_log = %ld, hfsize = %f", quota,
          static_cast<long>(reading.store_bytes), verdict.store_gib);
  LOGD_AS(name, "common dir: logsize = %f,  size_common_log = %f, size_logs = %f", quota,
          verdict.common_gib, verdict.total_gib);
  LOGD_AS(name, "logsize monitor is_deleting=%d, catch_modem_log=%d, is_extreme_deleting=%d",
          verdict.over_quota, modem, verdict.extreme_low);
  LOGD_AS(name, "logsize monitor logging=%d", 1);
}

// A test suite needs all its logs: deletion stays off until the property is set back by hand.
Next stop_for_test_run() {
  LOGW_AS("monitorLogSizeThread", "in cts or monkey, do not delete logs");
  property_set(kDeleteProp, "false");
  property_set(kQuotaProp, "30");
  return leave();
}

// True when the main process has asked the monitor to end and has, since the monitor stopped the
// run `stopped`, switched logging off or started another run. The monitor must not undo that, nor
// delete the new run.
bool is_overruled(const std::string& stopped) {
  return !s_logsize_monitor && (!is_logger_enabled() || s_current_run() != stopped);
}

// Starts a run in the monitor.
void start_logging() {
  s_start_logging();
  end_stray_child();
  // Only the main process knows the workers that it started after this monitor's fork. Any handled
  // signal makes it reach a safe point, where it notices the new run and ends them.
  kill(s_harrowmossd_pid, SIGCHLD);
}

Next rescue_data() {
  s_is_deleting = true;
  LOGW_AS("monitorLogSizeThread", "storage extreme low, delete logs");
  delete_trees();
  const bool restart = is_logger_enabled();
  const std::string run = s_current_run();
  if (restart) {
    s_stop_logging();
    sleep_ms(2000);
    if (is_overruled(run)) return deletion_done();
  }
  delete_trees();
  delete_dir(kVendorContents);
  if (restart && !is_overruled(run)) start_logging();
  return deletion_done();
}

Next restart_logging() {
  LOGW_AS("monitorLogSizeThread",
          "we have deleted logs all we can, but still not enough, delete & restart");
  if (is_in_cts() || is_in_monkey() || !is_logger_enabled()) {
    LOGD_AS("monitorLogSizeThread", "not delete log");
    return leave();
  }
  const std::string run = s_current_run();
  delete_dir(kStoreContents);
  s_stop_logging();
  sleep_ms(1000);
  if (is_overruled(run)) return deletion_done();
  delete_trees();
  if (!is_overruled(run)) start_logging();
  return deletion_done();
}

// Over quota: at most one run is removed in a cycle.
Next evict(MonitorState* state) {
  const int current = get_log_dir_sequence();
  LOGI_AS("monitorLogSizeThread", "first check log store dir..");
  const OldestRun store = findOldestLogDir(kStoreDir);
  const OldestRun working = findOldestLogDir(kWorkingDir);
  const bool logging = is_logger_enabled();
  const EvictionPlan plan = plan_eviction(store, working, current, logging, state->oldest);
  state->oldest = plan.oldest;
  if (plan.what == Eviction::kKeepLast) {
    LOGW_AS("monitorLogSizeThread", "do not delete current dir when only one");
  } else if (plan.what == Eviction::kStoreRun) {
    LOGI_AS("monitorLogSizeThread", "now delete oldest dir %s%s", kStoreDir, store.name.c_str());
    remove_run(kStoreDir, store.name);
    return deletion_done();
  }
  if (!logging) return deletion_done();
  LOGI_AS("monitorLogSizeThread", "next,check log common catching dir..");
  if (plan.what == Eviction::kWorkingRun) {
    LOGI_AS("monitorLogSizeThread", "now delete %s%s", kWorkingDir, working.name.c_str());
    remove_run(kWorkingDir, working.name);
    return deletion_done();
  }
  const bool none_smaller =
      plan.what == Eviction::kRestart || plan.what == Eviction::kRestartWithheld;
  if (!none_smaller || !restart_is_due(state->restart, monotonic_ms(), state->total_bytes)) {
    return deletion_done();
  }
  if (plan.what == Eviction::kRestartWithheld) {
    LOGE_AS("monitorLogSizeThread", "cannot list %s: no restart", kStoreDir);
    return deletion_done();
  }
  const Next after = restart_logging();
  state->restart = {monotonic_ms(), -1};
  return after;
}

// The biggest entry of both trees, hidden ones included.
std::string biggest_entry(int64_t* bytes) {
  std::string biggest;
  *bytes = -1;
  for (const char* dir : {kStoreDir, kWorkingDir}) {
    ScopedDir stream(opendir(dir));
    while (const dirent* entry = stream.valid() ? readdir(stream.get()) : nullptr) {
      if (strcmp(entry->d_name, ".") == 0 || strcmp(entry->d_name, "..") == 0) continue;
      const std::string path = std::string(dir) + entry->d_name;
      const int64_t size = getFileSize(path.c_str());
      if (size <= *bytes) continue;
      *bytes = size;
      biggest = path;
    }
  }
  return biggest;
}

// The first cycle after a restart shows whether it helped.
void follow_restart(RestartRecord* restart, bool over_quota, int64_t total_bytes) {
  if (restart->at_ms == -1) return;
  if (!over_quota) {
    *restart = {};
    return;
  }
  if (restart->left_bytes != -1) return;
  restart->left_bytes = total_bytes;
  int64_t bytes = 0;
  const std::string path = biggest_entry(&bytes);
  LOGE_AS("monitorLogSizeThread",
          "still over quota after a restart, the next one not before %d s: %s takes %lld bytes",
          static_cast<int>(kRestartPauseMs / 1000), path.c_str(), static_cast<long long>(bytes));
}

Next run_cycle(MonitorState* state) {
  if (s_is_deleting) {
    LOGD_AS("monitorLogSizeThread",
            "normal don't delete or is_deleting(%d), is_extreme_deleting(%d)", true, 0);
    return Next::kWait;
  }
  if (getpid() == s_pending_pid) end_process(0);
  if (!is_logger_enabled()) return leave();
  create_store_dir_if_needed();
  const int64_t store = getFileSize(kStoreDir);
  const int64_t common = getFileSize(kWorkingDir);
  const int32_t types = get_logger_types();
  // Logcats may free preallocated space between the two calls: take the larger value, so that it
  // counts once at least.
  const int64_t before = get_filesystem_size(kData);
  const int64_t preallocated = preallocated_by_captures();
  const SizeReading reading = {store,
                               common,
                               state->quota_gib,
                               shrinks_quota(types),
                               std::max(before, get_filesystem_size(kData)),
                               preallocated};
  const SizeVerdict verdict = judge_sizes(reading);
  s_is_deleting = verdict.over_quota;
  state->total_bytes = store + common;
  follow_restart(&state->restart, verdict.over_quota, state->total_bytes);
  if (verdict.over_quota || verdict.extreme_low)
    log_sizes(reading, verdict, (types & kTypeModem) != 0);
  if (is_in_cts() || is_in_monkey()) return stop_for_test_run();
  // A stop's move is about to free space.
  if (verdict.extreme_low && !is_move_under_way()) return rescue_data();
  return verdict.over_quota ? evict(state) : Next::kWait;
}

// The monitor's process.
[[noreturn]] void run_monitor() {
  s_logsize_monitor_pid = getpid();
  prctl(PR_SET_NAME, kSizeMonitorName, 0, 0, 0);
  signal(SIGUSR1, [](int sig) {
    const int saved_errno = errno;
    const ScopedSignalHandler scope;
    signal_log_size_monitor_handler(sig);
    errno = saved_errno;
  });
  monitorLogSizeThread();
  LOGW_AS("checkLogSize", "run out of monitorLogSizeThread!!!");
  end_process(0);
}

}  // namespace

void set_logging_switch(int (*stop)(), int (*start)(), std::string (*current_run)()) {
  s_current_run = current_run;
  s_stop_logging = stop;
  s_start_logging = start;
}

void checkLogSize() {
  char del_enable[PROPERTY_VALUE_MAX] = {};
  char log_enable[PROPERTY_VALUE_MAX] = {};
  property_get(kDeleteProp, del_enable, "true");
  property_get(kEnableProp, log_enable, "off");
  LOGD("log_enable = %s  del_enable = %s", log_enable, del_enable);
  if (strcmp(del_enable, "true") != 0 || strcmp(log_enable, "on") != 0 || is_stray_child()) {
    LOGD(" not open checkLogSize");
    return;
  }
  LOGD(" open checkLogSize s_logsize_monitor = %d", s_logsize_monitor.load());
  if (s_logsize_monitor && s_logsize_monitor_pid > 0) {
    LOGD(" monitorLogSizeThread has started");
    return;
  }
  s_logsize_monitor = true;
  const pid_t pid = fork_process(Group::kNew);
  if (pid == 0) run_monitor();
  if (pid == -1) {
    s_logsize_monitor = false;
    s_logsize_monitor_pid = -1;
    return;
  }
  s_logsize_monitor_pid = s_living_monitor_pid = pid;
  LOGD("fork a child %d", pid);
}

void stop_log_size_monitor() {
  if (!s_logsize_monitor) return;
  if (s_logsize_monitor_pid >= 1) signal_process(s_logsize_monitor_pid, SIGUSR1);
  s_logsize_monitor = false;
  s_logsize_monitor_pid = -1;
}

int32_t living_log_size_monitor() {
  return s_living_monitor_pid;
}

bool log_size_monitor_ended(int32_t pid) {
  if (pid != s_living_monitor_pid) return false;
  s_living_monitor_pid = -1;
  return true;
}

void monitorLogSizeThread() {
  LOGD(" into monitorLogSizeThread. s_logsize_monitor = %d\n", s_logsize_monitor.load());
  MonitorState state = {get_count_prop(kQuotaProp, kDefaultQuotaGib, INT_MAX), -1, {}, 0};
  s_pending_pid = -1;
  while (s_logsize_monitor) {
    if (run_cycle(&state) == Next::kLeave) return;
    if (s_logsize_monitor) sleep_ms(kCycleMs);
  }
  leave();
}

void signal_log_size_monitor_handler(int sig) {
  LOGW("receive signal %d, is_deleting=%d", sig, s_is_deleting.load());
  if (sig != SIGUSR1) return;
  s_logsize_monitor = false;
  if (!s_is_deleting) {
    LOGE("will exit log size monitor %d - %d", getpid(), s_logsize_monitor_pid.load());
    end_process(0);
  }
  LOGW("deleting, just set pending state");
  s_pending_pid = getpid();
}
