#include <cutils/properties.h>
#include <cutils/sockets.h>
#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>

#include "base/process.h"
#include "base/text.h"
#include "base/thread.h"
#include "catchers/fingerprint.h"
#include "daemon/harrowmoss.h"
#include "debuglog/commands.h"
#include "debuglog/logcat.h"
#include "debuglog/logger_types.h"
#include "debuglog/run.h"
#include "debuglog/settings.h"
#include "debuglog/workers.h"
#include "model/paths.h"
#include "model/properties.h"
#include "protocol/protocol.h"
#include "selflog/log.h"
#include "selflog/props.h"
#include "selflog/self_logger.h"
#include "storage/linked_move.h"
#include "storage/preallocation.h"
#include "storage/shell.h"
#include "storage/size_monitor.h"
#include "storage/utils.h"

namespace {

constexpr char kLogSource[] = "harrowmoss";
constexpr char kKernelLogFormat[] = "threadtime,usec";
constexpr char kKernelLogBuffer[] = "kernel";
constexpr int kKernelLogLines = 5000;
constexpr unsigned kKernelLogSeconds = 10;  // then SIGALRM ends the worker
constexpr int kListenBacklog = 5;
constexpr int kStartPauseMs = 1000;

constexpr unsigned long kTraceLimit = 20 * 1024 * 1024;  // of each secure-world trace
constexpr int kTraceGenerations = 5;

std::atomic<bool> s_monitor_running{false};

// init hands the socket over without close-on-exec; the first child must not inherit it.
void protect_control_socket() {
  const int fd = android_get_control_socket(kControlSocketName);
  if (fd < 0) return;
  fcntl(fd, F_SETFD, FD_CLOEXEC);
  close_in_children(fd);
}

void capture_boot_failure() {
  if (get_string_prop(kRebootProp, "0")[0] != '1') return;
  if (access(kBootFailLog, F_OK) == 0) return;
  run_tool(ShellText("/system/bin/vesk -v threadtime -b main -b events -b system -b crash -b radio "
                     "-b kernel -d -f")
               .target(kBootFailLog));
}

void init_systrace_state() {
  if (!is_logger_enabled()) return;
  if ((get_int_prop(kTypeProp, 0) & kTypeSystrace) == 0) return;
  property_set(kSystraceProp, "1");
  LOGD("manual set systrace prop");
}

void create_working_dir() {
  while (creat_dir(kWorkingDir) < 0) sleep_ms(kStartPauseMs);  // until /data is writable
}

void start_monitor_thread() {
  s_monitor_running = true;
  const ScopedSignalBlocker for_the_thread;
  pthread_t never_joined;  // default attributes, not detached
  if (pthread_create(&never_joined, nullptr, monitorThread, nullptr) == 0) return;
  LOGE_AS("main", "create monitor thread fail, error=%s\n", strerror(errno));
  s_monitor_running = false;
}

// The kernel-log worker's body.
[[noreturn]] void save_kernel_log() {
  alarm(kKernelLogSeconds);
  if (is_dir_exist(kSelfLogDir) < 0) creat_dir(kSelfLogDir);
  ShellText command(kRmTool);
  command.arg(kKernelLog).raw("; ").raw(kLogcat).raw(" -d -v").arg(kKernelLogFormat);
  command.raw(" -t").arg(std::to_string(kKernelLogLines)).raw(" -b").arg(kKernelLogBuffer);
  command.raw(" -f").target(kKernelLog);
  LOGD_AS("collect_kernel_pmic_log", "kernel_pmic fetch %s > %s", kKernelLogBuffer, kKernelLog);
  run_shell(command);
  end_process(0);
}

void collect_kernel_pmic_log() {
  const pid_t pid = fork_process(Group::kNew);
  if (pid == 0) save_kernel_log();
  if (pid < 1) {
    LOGE("failed to fork child. err:%d(%s).", errno, strerror(errno));
    return;
  }
  s_kernel_log_pid = pid;
  LOGD("fork %d to fetch kernel_pmic log", pid);
}

int listen_on_control_socket() {
  const int fd = android_get_control_socket(kControlSocketName);
  if (fd < 0) {
    LOGE_AS("main", "Failed to get socket from environment: %s\n", strerror(errno));
    exit(1);
  }
  if (listen(fd, kListenBacklog) != 0) {
    LOGE_AS("main", "Listen on socket failed: %s\n", strerror(errno));
    exit(1);
  }
  fcntl(fd, F_SETFD, FD_CLOEXEC);
  return fd;
}

}  // namespace

void rotate_traces() {
  const std::string dir = fingerprint_log_dir();
  rotateFpLogs(dir.c_str(), "qsee_log.txt", kTraceLimit, kTraceGenerations);
  rotateFpLogs(dir.c_str(), "tzbsp.txt", kTraceLimit, kTraceGenerations);
}

void* monitorThread(void*) {
  LOGD("function invoked");
  while (s_monitor_running) {
    rotate_traces();
    sleep_ms(1000);
  }
  return nullptr;
}

void initialize_globals() {
  LOGD("function invoked");
  s_debug_group = static_cast<int32_t*>(calloc(1, (kGroupSlots + 1) * sizeof(int32_t)));
  s_general_group = static_cast<int32_t*>(calloc(1, (kGroupSlots + 1) * sizeof(int32_t)));
}

void free_globals() {
  LOGD("function invoked");
  free(s_debug_group);
  s_debug_group = nullptr;
  free(s_general_group);
  s_general_group = nullptr;
}

void run_daemon() {
  block_handled_signals();  // one that comes before its handler is installed would end the daemon
  protect_control_socket();
  if (property_set(kSelfLogProp, "on") != 0) {
    LOG_ANDROID(ANDROID_LOG_DEBUG, "logger, set LOGSYS_LOG_ENABLE on failed.");
  }
  s_harrowmossd_pid = getpid();
  prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0);  // orphans of workers become ours
  capture_boot_failure();
  init_systrace_state();
  sleep_ms(kStartPauseMs);
  create_working_dir();
  LOGE_AS("main", "After create directories;\n");
  share_current_run();
  start_monitor_thread();
  install_signal_handlers();
  set_logging_switch(stop_debug_log, start_debug_log, current_run_name);
  initialize_globals();
  give_back_preallocation();
  settle_moves();
  preProcess();
  collect_kernel_pmic_log();
  start_debug_log();
  end_stray_child();
  checkLogSize();
  serve_connections(listen_on_control_socket());
}
