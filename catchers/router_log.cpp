#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>

#include "base/process.h"
#include "base/scoped.h"
#include "base/text.h"
#include "base/thread.h"
#include "capture/workers.h"
#include "catchers/catchers.h"
#include "selflog/log.h"
#include "selflog/props.h"
#include "storage/utils.h"

std::atomic<bool> qtrlog_running{false};

namespace {

constexpr char kLogSource[] = "commands";
constexpr char kFileName[] = "qrtr_last.txt";
constexpr char kFile[] = "/data/misc/zelkalog/qrtr_last.txt";
constexpr unsigned long kLimit = 512000;
constexpr int kGenerations = 3;
constexpr int kLookMs = 10 * 1000;

// A rotation thread exists; it may outlast its run by one look.
std::atomic<bool> s_rotating{false};

// The copier, for the rotation thread; qrtr_log_pid belongs to the main thread.
std::atomic<pid_t> s_copier{0};

// Sets O_APPEND on standard output of `pid` when that is the log. The flag belongs to the open
// file, which the copy of the descriptor shares.
bool make_append(pid_t pid) {
  char link[32];
  char target[sizeof(kFile) + 1] = {};
  format_cut(link, "/proc/%d/fd/1", pid);
  if (readlink(link, target, sizeof(target) - 1) < 0 || strcmp(target, kFile) != 0) return false;
  scoped_fd process(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
  if (!process.valid()) return false;
  scoped_fd output(static_cast<int>(syscall(SYS_pidfd_getfd, process.get(), 1, 0)));
  return output.valid() && fcntl(output.get(), F_SETFL, O_WRONLY | O_APPEND) == 0;
}

// The copier's shell opens the log without O_APPEND, so after an emptying it would go on behind a
// hole of all that it has ever written, and each copy of the file would fill the hole. A kernel
// before 5.6 cannot help; there the rotation counts only what is allocated. True once it is done.
bool keep_appending(pid_t copier) {
  constexpr int kMembers = 4;  // the shell and its cat
  pid_t members[kMembers];
  const int count = list_group(copier, members, kMembers);
  bool done = false;
  for (int i = 0; i < count; i++) done = make_append(members[i]) || done;
  return done;
}

// Copies the router log as long as it is wanted. False when the fork failed.
bool start_copier() {
  const bool second_channel = get_string_prop("persist.sys.harrowmoss.cfg", "false") == "true";
  char command[100] = {};
  copy_or_abort(command, "cat ");
  append_or_abort(command, second_channel ? "/d/ipc_logging/qrtr_2/log_cont"
                                          : "/d/ipc_logging/qrtr_0/log_cont");
  append_or_abort(command, " > ");
  append_or_abort(command, kFile);
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
  s_copier = pid;
  add_to_debug_group(pid);
  return true;
}

void start_rotation() {
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

int start_router_log() {
  if (get_string_prop("persist.sys.qtrlog.enable", "0") != "1") return 0;
  if (!start_copier()) return -1;
  start_rotation();
  return 0;
}

void* qtrlogThread(void*) {
  LOGD("function invoked");
  pid_t appending = 0;  // the copier that has been told to append
  for (;;) {
    while (qtrlog_running) {
      const pid_t copier = s_copier;
      if (copier != appending && keep_appending(copier)) appending = copier;
      rotateFpLogs(kWorkingDir, kFileName, kLimit, kGenerations);
      sleep_ms(kLookMs);
    }
    s_rotating = false;
    // A start that came in between found this thread and left the rotation to it.
    if (!qtrlog_running || s_rotating.exchange(true)) return nullptr;
  }
}
