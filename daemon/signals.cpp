#include <errno.h>
#include <signal.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>

#include "base/deferred_signals.h"
#include "base/local_time.h"
#include "base/process.h"
#include "base/thread.h"
#include "daemon/harrowmoss.h"
#include "debuglog/commands.h"
#include "debuglog/logcat.h"
#include "feedback/feedback.h"
#include "input/touch_recorder.h"
#include "selflog/log.h"
#include "selflog/props.h"
#include "storage/size_monitor.h"

namespace {

constexpr char kLogSource[] = "harrowmoss";

// Log texts for the signals that the main process ignores and that end a child.
struct HandledSignal {
  int sig;
  const char* parent_text;  // takes the number and its text
  const char* child_text;   // takes the pid first
};
constexpr HandledSignal kHandledSignals[] = {
    {SIGINT, "ignore signal %d(%s)", "%d receive signal %d(%s)"},
    {SIGTERM, "ignore signal %d(%s)", "%d receive signal %d(%s)"},
    {SIGPIPE, "pipe broken, ignore signal %d(%s)", "%d pipe broken, receive signal %d(%s)"},
    {SIGALRM, "alarm arrives, ignore signal %d(%s)", "%d alarm arrives, receive signal %d(%s)"},
};

const HandledSignal* find_handled(int sig) {
  const auto* found = std::find_if(std::begin(kHandledSignals), std::end(kHandledSignals),
                                   [sig](const HandledSignal& row) { return row.sig == sig; });
  return found == std::end(kHandledSignals) ? nullptr : found;
}

void signal_handler_parent(const int& sig) {
  const HandledSignal* handled = find_handled(sig);
  if (handled != nullptr) {
    LOGE(handled->parent_text, sig, strsignal(sig));
    return;
  }
  // The orderly shutdown. No installed signal leads here: the daemon ends by SIGKILL.
  LOGE("killed by signal %d(%s)", sig, strsignal(sig));
  stop_general_log();
  stop_debug_log();
  stop_feedback_log();
  free_globals();
  end_process(0);
}

void signal_handler_child(const int& sig) {
  stop_tp_log();
  if (getpid() == s_logsize_monitor_pid) {
    signal_log_size_monitor_handler(sig);
    return;
  }
  if (is_main_process()) return;
  const HandledSignal* handled = find_handled(sig);
  if (handled == nullptr) {
    LOGE("%d receive signal %d(%s), not handled!!!", getpid(), sig, strsignal(sig));
    return;
  }
  LOGE(handled->child_text, getpid(), sig, strsignal(sig));
  const ScopedSignalBlocker until_ended;  // this process is in the group
  if (getpgrp() == getpid()) kill(0, SIGTERM);
  end_process(0);
}

void signal_handler(int sig) {
  LOGE("catch signal %d(%s), pid:%d, parent pid:%d, s_harrowmossd_pid:%d", sig, strsignal(sig),
       getpid(), getppid(), s_harrowmossd_pid);
  if (is_main_process()) {
    signal_handler_parent(sig);
  } else {
    signal_handler_child(sig);
  }
}

void restart_killed_monitor() {
  LOGE_AS("signal_waitpid_parent", "log size monitor killed by signal, try restart..");
  s_logsize_monitor_pid = -1;
  s_logsize_monitor = false;
  checkLogSize();
}

void signal_waitpid_parent() {
  int status = 0;
  for (pid_t pid = reap_any(&status); pid >= 1; status = 0, pid = reap_any(&status)) {
    const bool exited = WIFEXITED(status);
    LOGE("waitpid success, pid = %d ,stat = %d\n", pid, exited);
    if (exited) {
      update_logcat_log(pid);
    } else if (WIFSIGNALED(status) && pid == s_logsize_monitor_pid) {
      restart_killed_monitor();
    }
    // Workers that the monitor had started became ours when it ended.
    if (log_size_monitor_ended(pid) && !is_logger_enabled()) end_logging_leftovers();
  }
}

void signal_waitpid(int sig) {
  LOGE("signum = %d(%s), pid:%d, parent pid:%d, s_harrowmossd_pid:%d", sig, strsignal(sig),
       getpid(), getppid(), s_harrowmossd_pid);
  if (!is_main_process()) return;  // children wait for theirs where they started them
  signal_waitpid_parent();
}

void dispatch_signal(int sig) {
  if (sig == SIGCHLD) {
    signal_waitpid(sig);
  } else {
    signal_handler(sig);
  }
}

// The installed handler.
void on_signal(int sig) {
  const int saved_errno = errno;
  if (is_main_process()) {
    record_signal(sig);
  } else {
    const ScopedSignalHandler scope;
    dispatch_signal(sig);
  }
  errno = saved_errno;
}

// SIGKILL can be neither caught nor blocked; the attempt is kept, harmless.
constexpr int kInstalled[] = {SIGKILL, SIGTERM, SIGINT, SIGPIPE, SIGALRM, SIGCHLD};

}  // namespace

void block_handled_signals() {
  sigset_t handled;
  sigemptyset(&handled);
  for (const int sig : kInstalled) sigaddset(&handled, sig);
  pthread_sigmask(SIG_BLOCK, &handled, nullptr);
}

void install_signal_handlers() {
  set_signal_hooks(dispatch_signal, end_superseded_workers);
  for (const int sig : kInstalled) signal(sig, on_signal);
}

void stop_feedback_log() {}
