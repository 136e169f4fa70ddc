#include <errno.h>
#include <signal.h>
#include <string.h>
#include <sys/wait.h>
#include <time.h>

#include "base/deferred_signals.h"
#include "base/process.h"
#include "base/text.h"
#include "debuglog/commands.h"
#include "debuglog/harvest.h"
#include "debuglog/logcat.h"
#include "debuglog/logger_types.h"
#include "debuglog/run.h"
#include "debuglog/workers.h"
#include "selflog/log.h"
#include "selflog/self_logger.h"
#include "storage/size_monitor.h"
#include "storage/store.h"
#include "storage/utils.h"

namespace {

constexpr char kLogSource[] = "commands";
constexpr int kWorkerTicks = 30;  // of 100 ms: a worker's bound, about 3.1 s

// ---- Ending the workers. ----

enum class Ending { kTerm, kKill, kKillGroup };

// A shell may ignore SIGTERM while its command runs, and these commands do not end by themselves.
Ending ending_of(pid_t pid) {
  if (pid == fg_log_pid || pid == watch_fd_pid) return Ending::kKill;
  if (pid == qsee_log_pid || pid == bsp_log_pid || pid == net_log_pid) return Ending::kKillGroup;
  return Ending::kTerm;
}

void send_ending(pid_t pid) {
  switch (ending_of(pid)) {
    case Ending::kKill:
      LOGE_AS("stop_debug_log", "STOP PID by SIGKILL %d  \n", pid);
      signal_process(pid, SIGKILL);
      break;
    case Ending::kKillGroup:
      LOGE_AS("stop_debug_log", "STOP PID by SIGKILL -%d  \n", pid);
      signal_group(pid, SIGKILL);
      break;
    case Ending::kTerm:
      signal_process(pid, SIGTERM);
      break;
  }
}

// Waits for a worker that was told to end; `table` names its table in the log.
void await_worker(const char* table, pid_t pid) {
  LOGD_AS("stop_debug_log", "wait %s begin, wait pid %d \n", table, pid);
  int status = 0;
  int ret;
  if (pid == qrtr_log_pid) {
    // It may hang in the kernel: not waited for, ended with the leftovers.
    LOGD_AS("stop_debug_log", "kpr for network pass qrtr_pid WNOHANG!");
    ret = waitpid(pid, &status, WNOHANG);
  } else {
    ret = wait_child_to_finish(pid, kWorkerTicks);
  }
  LOGD_AS("stop_debug_log", "wait %s over. status=%d, return:%d, errno:%d(%s), pid:%d", table,
          status, ret, errno, strerror(errno), pid);
}

// The workers that were told to end; their groups may have members left.
struct EndedWorkers {
  pid_t pids[kGroupSlots + 2 * kLogBufferCount];
  int count;
};

void end_logcat(const char* table, int32_t* pid, EndedWorkers* ended) {
  if (*pid < 1) return;
  signal_process(*pid, SIGTERM);
  await_worker(table, *pid);
  ended->pids[ended->count++] = *pid;
  *pid = 0;
}

EndedWorkers end_workers() {
  EndedWorkers ended = {};
  LOGD_AS("stop_debug_log", "kill debug group start");
  qtrlog_running = false;
  for (int slot = 1; s_debug_group != nullptr && slot <= kGroupSlots; slot++) {
    const pid_t pid = s_debug_group[slot];
    if (pid < 1) continue;
    send_ending(pid);
    await_worker("s_debug_group", pid);
    ended.pids[ended.count++] = pid;
    s_debug_group[slot] = 0;
  }
  LOGD_AS("stop_debug_log", "kill debug group end, next kill vesk group..");
  for (int i = 0; i < kLogBufferCount; i++) {
    end_logcat("s_debug_vesk_group", &s_debug_vesk_group[i].pid, &ended);
    end_logcat("s_newlog_group", &s_newlog_group[i].pid, &ended);
  }
  LOGD_AS("stop_debug_log", "kill vesk group end");
  return ended;
}

// ---- Final snapshot and harvest. ----

void move_runs() {
  LOGD_AS("stop_debug_log", "move all log start=%ld", static_cast<long>(time(nullptr)));
  move_dir(kWorkingContents, kStoreDir, nullptr);
  LOGD_AS("stop_debug_log", "move all log end=%ld", static_cast<long>(time(nullptr)));
}

void copy_self_log() {
  LOGD_AS("stop_debug_log", "copy self log start");
  copy_dir(kSelfLogDir, kStoreDir);
  LOGD_AS("stop_debug_log", "copy self log end");
}

void end_self_log_collector() {
  int32_t pid = s_self_log_collector_pid;
  if (pid < 1) return;
  LOGD_AS("stop_debug_log", "kill log collector %d", pid);
  const bool killed = signal_process(pid, SIGKILL) == 0;
  const bool gone = kill(pid, 0) == -1 && errno == ESRCH;
  // Neither: perhaps no descriptor was free to check it with. The next stop tries again.
  if (!killed && !gone) {
    signal_process(pid, SIGCONT);  // completeSelfLog() has stopped it
    return;
  }
  // When logging goes on with another mask, the collector thread may have set a new pid already.
  s_self_log_collector_pid.compare_exchange_strong(pid, 0);
}

}  // namespace

int stop_debug_log() {
  const ScopedNoSafePoints until_done;
  LOGD("function invoked");
  follow_current_run();
  create_store_dir_if_needed();
  restorecon_media_zelkalog();
  for (const ClosingStep step : kClosingSteps) step();
  const EndedWorkers ended = end_workers();
  if (is_main_process()) {
    end_logging_leftovers();
    complete_captures();  // the size monitor stops a run only to delete it
  } else {
    end_groups(ended.pids, ended.count);
  }
  get_logcat_control_message_for_debug(s_log_store_path);
  LOGE("stop debug log over.");
  move_runs();
  wait_vendor_mv_actions_done();
  if (is_main_process()) loggersystem::completeSelfLog(s_self_log_collector_pid);
  copy_self_log();
  end_self_log_collector();
  return 0;
}

void end_logging_leftovers() {
  const pid_t survivors[] = {s_kernel_log_pid, living_log_size_monitor(), s_request_pid};
  end_leftover_children(survivors, static_cast<int>(std::size(survivors)),
                        living_log_size_monitor());
}

void end_superseded_workers() {
  if (!follow_current_run()) return;
  const EndedWorkers ended = end_workers();
  end_groups(ended.pids, ended.count);
}
