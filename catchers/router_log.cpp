#include <cutils/properties.h>
#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <atomic>

#include "base/process.h"
#include "base/text.h"
#include "base/thread.h"
#include "catchers/catchers.h"
#include "debuglog/workers.h"
#include "model/properties.h"
#include "selflog/log.h"
#include "selflog/props.h"
#include "storage/shell.h"
#include "storage/utils.h"

namespace {

constexpr char kLogSource[] = "commands";
constexpr char kRouterLogProp[] = "persist.sys.qtrlog.enable";
constexpr char kFileName[] = "qrtr_last.txt";
constexpr char kFile[] = "/data/misc/zelkalog/qrtr_last.txt";
constexpr unsigned long kLimit = 512000;
constexpr int kGenerations = 3;
constexpr int kPollMs = 10 * 1000;

// A rotation thread exists; it may outlast its run by one poll interval.
std::atomic<bool> s_rotating{false};

// Starts the worker that copies the router log. False when the fork failed.
bool start_copier() {
  const bool second_channel = get_string_prop(kSecondChannelProp, "false") == "true";
  const char* source =
      second_channel ? "/d/ipc_logging/qrtr_2/log_cont" : "/d/ipc_logging/qrtr_0/log_cont";
  const ShellText command = ShellText("cat").arg(source).raw(" >").target(kFile);
  const pid_t pid = fork_process(Group::kNew);
  if (pid == -1) {
    qrtr_log_pid = 0;
    LOGE_AS("catcher_mobile_log", "get qtrlog, fork err:%s.\n", strerror(errno));
    return false;
  }
  if (pid == 0) {
    LOGE_AS("catcher_mobile_log", "command=%s,getpid=%d", command.c_str(), getpid());
    exec_shell("sh", "sh", command);
    perror("execlp error");
    end_process(0);
  }
  LOGE_AS("catcher_mobile_log", "fork child process, pid:%d, sh -c %s \n", pid, command.c_str());
  qrtr_log_pid = pid;
  add_to_debug_group(pid);
  return true;
}

void start_rotation() {
  qtrlog_running = true;
  if (s_rotating.exchange(true)) return;  // the previous run's thread goes on
  const int result = start_thread(qtrlogThread, nullptr);
  if (result == 0) return;
  s_rotating = false;
  if (result < 0) {
    LOGE_AS("catcher_mobile_log", "create monitor thread fail, error=%s\n", strerror(errno));
    qtrlog_running = false;
  }
}

}  // namespace

int start_router_log() {
  if (get_string_prop(kRouterLogProp, "0") != "1") return 0;
  if (!start_copier()) return -1;
  start_rotation();
  return 0;
}

void* qtrlogThread(void*) {
  LOGD("function invoked");
  for (;;) {
    while (qtrlog_running) {
      rotateFpLogs(kWorkingDir, kFileName, kLimit, kGenerations);
      sleep_ms(kPollMs);
    }
    s_rotating = false;
    // A start in between found s_rotating set and made no other thread.
    if (!qtrlog_running || s_rotating.exchange(true)) return nullptr;
  }
}

void stop_router_log() {
  property_set(kRouterLogProp, "0");
}
