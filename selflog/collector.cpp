#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include "base/beneath.h"
#include "base/process.h"
#include "base/scoped.h"
#include "base/text.h"
#include "base/thread.h"
#include "model/process_names.h"
#include "model/properties.h"
#include "selflog/log.h"
#include "selflog/logcat_file.h"
#include "selflog/props.h"
#include "selflog/replacement_pace.h"
#include "selflog/self_logger.h"

namespace {

constexpr char kLogSource[] = "utils";
constexpr int kRefusedPauseMs = 2000;  // before the next attempt, which may find it gone
constexpr char kOwnTags[] = "Harrowmoss harrowmoss harrowmossd";  // the app's, older ones, ours

// A collector runs, in this process or, inherited by the size monitor, in the main one.
std::atomic<bool> s_collecting{false};

// One collector may run: a second one would write the same file and hide the first one's pid.
bool claim_collector() {
  bool expected = false;
  return s_collecting.compare_exchange_strong(expected, true);
}

[[noreturn]] void become_collector() {
  LOGD_AS("collectSelfLog", "start collect self log %s", kCollectorFile);
  if (is_trap(kCollectorFile)) {
    LOGE_AS("collectSelfLog", "a link or no file is in the way of %s", kCollectorFile);
    sleep_ms(kRefusedPauseMs);
    end_process(0);
  }
  const int ret =
      execlp(kLogcat, kCollectorName, "-v", "threadtime,usec", "-s", kOwnTags, "-b", "main", "-f",
             kCollectorFile, "-r", "10240", "-n", "2", static_cast<char*>(nullptr));
  LOGE_AS("collectSelfLog", "exec ret: %d, err: %s\n", ret, strerror(errno));
  sleep_ms(2000);
  end_process(0);
}

[[noreturn]] void become_completion() {
  const int ret =
      execlp(kLogcat, "vesk_complete", "-d", "-v", "threadtime,usec", "-s", kOwnTags, "-b", "main",
             "-f", kCollectorFile, "-r", "10240", "-n", "2", static_cast<char*>(nullptr));
  LOGE_AS("completeSelfLog", "exec ret: %d, err: %s\n", ret, strerror(errno));
  end_process(0);
}

// Stops the collector's logcat `pid` (SIGSTOP) and waits until it is stopped. False when it has
// ended or is not stopped within a second.
bool halt(pid_t pid) {
  constexpr int kLooks = 1000;
  if (signal_process(pid, SIGSTOP) != 0) return false;
  for (int look = 0; look < kLooks; look++) {
    siginfo_t info = {};
    const auto id = static_cast<id_t>(pid);
    if (waitid(P_PID, id, &info, WEXITED | WSTOPPED | WNOHANG | WNOWAIT) != 0) return false;
    if (info.si_pid == pid) return info.si_code == CLD_STOPPED;
    sleep_ms(1);
  }
  return false;
}

// Cuts the torn last line that a logcat has left in the collector's file, and frees what it has
// preallocated. The next logcat goes on at the time of the last whole line.
bool trim_collector_file() {
  return trim_logcat_file(AT_FDCWD, kCollectorFile, TornLine::kCut);
}

}  // namespace

int loggersystem::startSelfLogCollector(std::atomic<int32_t>* pid) {
  if (!is_prop_on(kSelfLogProp, "off")) {
    LOG_ANDROID(ANDROID_LOG_WARN, "not enabled self logger");
    return -1;
  }
  // One that still waits for its logcat is good for the next run too.
  if (!claim_collector()) return -1;
  const int result = start_thread(collectSelfLog, pid);
  if (result != 0) s_collecting = false;
  if (result < 0) {
    LOG_ANDROID(ANDROID_LOG_ERROR, "create collect self log thread fail, error=%s\n",
                strerror(errno));
  }
  return result == 0 ? 0 : -1;
}

void* loggersystem::collectSelfLog(void* arg) {
  auto* pid = static_cast<std::atomic<int32_t>*>(arg);
  ReplacementPace pace;
  bool slow = false;
  for (;;) {
    *pid = 0;
    if (!ScopedDir(opendir(kSelfLogDir)).valid() && logger_mkdir(kSelfLogDir) != 0) {
      LOGD("logger cannot create file:%s", kSelfLogDir);
      sleep_ms(3000);
      continue;
    }
    const pid_t child = fork_process(Group::kNew);
    if (child == -1) {
      LOGE("fork err:%s.\n", strerror(errno));
      sleep_ms(2000);
      continue;
    }
    if (child == 0) become_collector();
    *pid = child;
    LOGD("fork child process, pid:%d", child);
    wait_for(child, nullptr);
    LOGE("waitpid %d finished", child);
    *pid = 0;
    trim_collector_file();
    const int delay_ms = is_logger_enabled() ? pace.next_delay_ms(monotonic_ms()) : 0;
    if (delay_ms > 0 && !slow) LOGW("logcat ends again and again, started once a second now");
    slow = delay_ms > 0;
    sleep_ms(delay_ms);
    if (is_logger_enabled()) continue;
    LOGW("logger stopoped, exit");
    s_collecting = false;
    // A start that came in between found this thread still claiming the collector.
    if (!is_logger_enabled() || !claim_collector()) return nullptr;
  }
}

void loggersystem::completeSelfLog(int32_t pid) {
  if (pid < 1 || !halt(pid)) return;
  if (!trim_collector_file()) {
    LOGE("cannot complete %s: %s", kCollectorFile, strerror(errno));
    return;
  }
  const pid_t child = fork_process(Group::kNew);
  if (child == 0) become_completion();
  if (child == -1) return;
  await_logcat(child, kCompletionMs, kCollectorFile, nullptr);
  trim_collector_file();
}
