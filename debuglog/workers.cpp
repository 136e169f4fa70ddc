#include "debuglog/workers.h"

#include <errno.h>
#include <signal.h>
#include <string.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>

#include "base/deferred_signals.h"
#include "base/process.h"
#include "base/text.h"
#include "model/process_names.h"
#include "selflog/log.h"

int32_t* s_debug_group = nullptr;
int32_t* s_general_group = nullptr;
int32_t qrtr_log_pid = 0;
int32_t watch_fd_pid = 0;
int32_t net_log_pid = 0;
int32_t fg_log_pid = 0;
int32_t qsee_log_pid = 0;
int32_t bsp_log_pid = 0;
int32_t mpss_stats_pid = 0;
std::atomic<bool> qtrlog_running{false};
int32_t s_kernel_log_pid = 0;
int32_t s_request_pid = 0;

namespace {

constexpr char kLogSource[] = "commands";
constexpr int kTickMs = 100;  // of wait_child_to_finish(), and the pause after a kill
constexpr size_t kProcessNameSize = 96;
constexpr int kLeftoverMs = 3000;
constexpr int kLeftoverPollMs = 5;
constexpr int kMaxChildren = 256;

bool contains(const pid_t* pids, int count, pid_t pid) {
  return std::find(pids, pids + count, pid) != pids + count;
}

// Sends `sig`, once to each, to what `list(pids)` finds, and reaps, until it finds nothing or for
// kLeftoverMs: what an ended process leaves behind is found by the next look.
template <typename List, typename Send>
bool end_listed(List list, Send send, int sig) {
  const int64_t deadline = monotonic_ms() + kLeftoverMs;
  pid_t signalled[kMaxChildren];
  int signalled_count = 0;
  for (;;) {
    pid_t pids[kMaxChildren];
    const int left = list(pids);
    if (left == 0) return true;
    if (monotonic_ms() >= deadline) return false;
    for (int i = 0; i < left; i++) {
      if (!contains(signalled, signalled_count, pids[i]) && signalled_count < kMaxChildren) {
        signalled[signalled_count++] = pids[i];
        send(pids[i], sig);
      }
      wait_within(pids[i], 0, nullptr);
    }
    sleep_ms(kLeftoverPollMs);
  }
}

template <typename List, typename Send>
void end_or_kill(List list, Send send) {
  if (end_listed(list, send, SIGTERM)) return;
  LOGE_AS("end_leftover_children", "leftover children do not end, kill them");
  end_listed(list, send, SIGKILL);
}

}  // namespace

bool add_to_group(int32_t* table, pid_t pid) {
  for (int slot = 1; table != nullptr && slot <= kGroupSlots; slot++) {
    if (table[slot] != 0) continue;
    table[slot] = pid;
    return true;
  }
  signal_process(pid, SIGTERM);
  return false;
}

pid_t fork_worker(const char* function) {
  const pid_t pid = fork_process(Group::kNew);
  if (pid == -1) LOGE_AS(function, "fork err:%s.\n", strerror(errno));
  if (pid > 0) add_to_debug_group(pid);
  return pid;
}

int await_child(pid_t pid, const ChildWait& how) {
  int polls = 0;
  for (pid_t gone = wait_within(pid, 0, nullptr); gone == 0; polls++) {
    const bool last = polls >= how.polls;
    if (how.is_request) LOGD_AS(how.function, "wait child %d to finish.", pid);
    if (last && !how.until_gone) {
      sleep_ms(how.last_pause_ms);
    } else {
      gone = wait_within(pid, last ? how.last_pause_ms : how.poll_ms, nullptr);
    }
    if (how.is_request) safe_point();
    if (gone != 0 || !last) continue;
    LOGE_AS(how.function, "wait child %d timeout, kill it", pid);
    signal_group(pid, SIGKILL);
    sleep_ms(how.kill_pause_ms);
    if (!how.until_gone) return -1;
    gone = wait_within(pid, 0, nullptr);
  }
  return polls;
}

int wait_child_to_finish(pid_t pid, int ticks) {
  const int polls = await_child(pid, {__func__, kTickMs, ticks, kTickMs, kTickMs, false, false});
  if (polls == -1) return 0;
  LOGD("%d wait child %d to finish wastes %f secs", getpid(), pid, polls / 10.0);
  return 1;
}

int await_request_child(const char* function, pid_t pid, int poll_ms, int polls) {
  s_request_pid = pid;
  const int count = await_child(pid, {function, poll_ms, polls, poll_ms, kTickMs, true, true});
  s_request_pid = 0;
  return count;
}

int set_process_name(const char* name, int /*ignored*/) {
  char composed[128] = {};
  format_cut(composed, "%s%s", kWorkerPrefix, name);
  LOGD("pid %d : %s", getpid(), composed);
  // The end of `composed`, with its NUL.
  return prctl(PR_SET_NAME, kernel_name(composed).data(), 0, 0, 0);
}

char* build_process_name(const char* name, char* buf, int is_debug, bool vesk_suffix) {
  append_or_abort(buf, kProcessNameSize, is_debug > 0 ? kWorkerPrefix : kGeneralPrefix);
  append_or_abort(buf, kProcessNameSize, name);
  if (vesk_suffix) append_or_abort(buf, kProcessNameSize, "-vesk");
  return buf;
}

void end_leftover_children(const pid_t* spared, int count, pid_t monitor) {
  if (!is_main_process()) return;
  const auto list = [=](pid_t(&pids)[kMaxChildren]) {
    const int all = list_children(pids, kMaxChildren);
    int left = static_cast<int>(
        std::remove_if(pids, pids + all, [=](pid_t pid) { return contains(spared, count, pid); }) -
        pids);
    if (monitor > 0 && left < kMaxChildren) {
      left += list_group_leaders(monitor, pids + left, kMaxChildren - left);
    }
    return left;
  };
  const auto send = [=](pid_t pid, int sig) {
    if (monitor > 0 && is_child_of(pid, monitor)) {
      kill(-pid, sig);  // not ours, but listed as the leader of a group
    } else if (contains(spared, count, getpgid(pid))) {
      signal_process(pid, sig);  // an orphan in the group of a process that goes on
    } else {
      signal_group(pid, sig);
    }
  };
  end_or_kill(list, send);
}

void end_groups(const pid_t* leaders, int count) {
  const auto list = [=](pid_t(&pids)[kMaxChildren]) {
    int left = 0;
    for (int i = 0; i < count && left < kMaxChildren; i++) {
      left += list_group(leaders[i], pids + left, kMaxChildren - left);
    }
    return left;
  };
  end_or_kill(list, signal_group);
}
