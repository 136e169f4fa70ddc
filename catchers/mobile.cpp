#include <cutils/properties.h>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "base/process.h"
#include "base/scoped.h"
#include "base/text.h"
#include "base/thread.h"
#include "capture/logcat.h"
#include "capture/workers.h"
#include "catchers/app_files.h"
#include "catchers/catchers.h"
#include "feedback/feedback.h"
#include "selflog/log.h"
#include "selflog/props.h"
#include "storage/shell.h"
#include "storage/utils.h"

std::atomic<bool> qtrlog_running{false};

namespace {

constexpr char kLogSource[] = "commands";
constexpr size_t kPathSize = 256;
constexpr size_t kOptionBytes = 512;  // of the option file that are read
constexpr const char* kBuffers[] = {"main", "events", "system", "radio", "crash"};
constexpr int kKernelBufferSdk = 23;  // the log daemon has a kernel buffer from this release on
constexpr char kQmiMsgProp[] = "persist.odm.zklog.qmimsg.enable";

constexpr char kRouterLogFile[] = "qrtr_last.txt";
constexpr unsigned long kRouterLogLimit = 512000;
constexpr int kRouterLogGenerations = 3;
constexpr int kRouterLogLookMs = 10 * 1000;

// A rotation thread exists; it may outlast its run by one look.
std::atomic<bool> s_rotating{false};

void start_logcats(const char* dir) {
  for (const char* buffer : kBuffers) catcher_logcat_log(buffer, dir, 1);
  if (get_int_prop("ro.build.version.sdk", 0) >= kKernelBufferSdk) {
    catcher_logcat_log("kernel", dir, 1);
  }
}

void load_logcat_file_count() {
  s_logcat_file_count = get_int_prop(kLogcatFileCountProp, kDefaultLogcatFileCount);
  if (s_logcat_file_count >= 0) return;
  s_logcat_file_count = kDefaultLogcatFileCount;
  property_set(kLogcatFileCountProp, "9");
}

// Option "watch_fd": a platform script that lists open descriptors until it is killed.
void catcher_watch_fd_log(const char* dir) {
  LOGD("function invoked");
  char fd_dir[kPathSize] = {};
  copy_or_abort(fd_dir, dir);
  append_or_abort(fd_dir, "/fd");
  creat_dir(fd_dir);
  char command[kPathSize] = {};
  copy_or_abort(command, "/system/bin/sh /system/etc/watch_fd.sh > ");
  append_or_abort(command, fd_dir);
  append_or_abort(command, "/fd_log.txt");
  const pid_t pid = fork_process_keeping_connection(group::own);
  if (pid == 0) {
    execlp(kShell, "debug/vesk", "-c", command, static_cast<char*>(nullptr));
    return;  // without a shell this process goes on as the daemon would, up to the end of its
             // request
  }
  if (pid == -1) {
    LOGE("watch fd fork err:%s.", strerror(errno));
    watch_fd_pid = 0;
    return;
  }
  add_to_debug_group(pid);
  watch_fd_pid = pid;
  LOGE("fork child process, pid:%d, /system/bin/sh debug/vesk -c %s \n", pid, command);
}

// Option "qmi_msg": the modem's control messages in the kernel log.
void enable_qmi_messages(const char*) {
  property_set(kQmiMsgProp, "1");
  run_shell("echo 0x2 > /sys/module/ipc_router_core/parameters/debug_mask");
}

struct mobile_option {
  const char* begins_with;
  void (*apply)(const char* dir);
};
constexpr mobile_option kOptions[] = {
    {"qmi_msg", enable_qmi_messages},
    {"watch_fd", catcher_watch_fd_log},
};

// The app's option file: only its first bytes count, and the first option that fits.
void handle_mobile_cfg(const char* dir) {
  scoped_fd fd(open(kMobileCfg, O_RDWR | O_CLOEXEC));
  if (!fd.valid()) {
    LOGE("open file %s failed ! %s\n", kMobileCfg, strerror(errno));
    return;
  }
  char text[kOptionBytes + 1] = {};
  const ssize_t size = read(fd.get(), text, kOptionBytes);
  fd.reset();
  if (size < 0) {
    LOGE("read file %s failed ! %s\n", kMobileCfg, strerror(errno));
    return;
  }
  for (const mobile_option& option : kOptions) {
    if (!starts_with(text, option.begins_with)) continue;
    option.apply(dir);
    return;
  }
}

bool qrtr_enabled() {
  return get_string_prop("persist.sys.qtrlog.enable", "0") == "1";
}

// Copies the router log as long as it is wanted. Returns false when the fork failed.
bool start_qrtr_copier() {
  const bool second_channel = get_string_prop("persist.sys.harrowmoss.cfg", "false") == "true";
  char command[100] = {};
  copy_or_abort(command, "cat ");
  append_or_abort(command, second_channel ? "/d/ipc_logging/qrtr_2/log_cont"
                                          : "/d/ipc_logging/qrtr_0/log_cont");
  append_or_abort(command, " > /data/misc/zelkalog/qrtr_last.txt");
  const pid_t pid = fork_process(group::own);
  if (pid == -1) {
    qrtr_log_pid = 0;
    LOG_AS(ANDROID_LOG_ERROR, "catcher_mobile_log", "get qtrlog, fork err:%s.\n", strerror(errno));
    return false;
  }
  if (pid == 0) {
    LOG_AS(ANDROID_LOG_ERROR, "catcher_mobile_log", "command=%s,getpid=%d", command, getpid());
    execlp("sh", "sh", "-c", command, static_cast<char*>(nullptr));
    perror("execlp error");
    end_process(0);
  }
  LOG_AS(ANDROID_LOG_ERROR, "catcher_mobile_log", "fork child process, pid:%d, sh -c %s \n", pid,
         command);
  qrtr_log_pid = pid;
  add_to_debug_group(pid);
  return true;
}

void start_qrtr_rotation() {
  qtrlog_running = true;
  if (s_rotating.exchange(true)) return;  // the last run's thread goes on for this one
  const int result = start_thread(qtrlogThread, nullptr);
  if (result == 0) return;
  s_rotating = false;
  if (result < 0) {
    LOG_AS(ANDROID_LOG_ERROR, "catcher_mobile_log", "create monitor thread fail, error=%s\n",
           strerror(errno));
    qtrlog_running = false;
  }
}

}  // namespace

void* qtrlogThread(void*) {
  LOGD("function invoked");
  for (;;) {
    while (qtrlog_running) {
      rotateFpLogs(kWorkingDir, kRouterLogFile, kRouterLogLimit, kRouterLogGenerations);
      sleep_ms(kRouterLogLookMs);
    }
    s_rotating = false;
    // A start that came in between found this thread and left the rotation to it.
    if (!qtrlog_running || s_rotating.exchange(true)) return nullptr;
  }
}

int catcher_mobile_log(const char* log_dir, const char* name) {
  LOGD("function invoked");
  char dir[kPathSize] = {};
  copy_or_abort(dir, log_dir);
  append_or_abort(dir, "/");
  append_or_abort(dir, name);
  creat_dir(dir);
  load_logcat_file_count();
  start_logcats(dir);
  get_logcat_control_message(dir);
  copy_system_propertie(log_dir, "");
  property_set(kQmiMsgProp, "0");
  handle_mobile_cfg(dir);
  if (!qrtr_enabled()) return 0;
  if (!start_qrtr_copier()) return -1;
  start_qrtr_rotation();
  return 0;
}
