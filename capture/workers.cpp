#include "capture/workers.h"

#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>

#include "base/noted_signals.h"
#include "base/process.h"
#include "base/text.h"
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
int32_t s_kernel_log_pid = 0;
int32_t s_request_pid = 0;

namespace {

constexpr char kLogSource[] = "commands";
constexpr int kTickMs = 100;
constexpr size_t kProcessNameSize = 96;
constexpr size_t kKernelNameLength = 15;  // what PR_SET_NAME keeps, without the NUL
constexpr int kLeftoverMs = 3000;
constexpr int kMaxChildren = 256;

// This process's children that are not spared; how many.
int list_leftovers(const pid_t* spared, int count, pid_t (&pids)[kMaxChildren]) {
  const int all = list_children(pids, kMaxChildren);
  pid_t* const end = std::remove_if(pids, pids + all, [=](pid_t pid) {
    return std::find(spared, spared + count, pid) != spared + count;
  });
  return static_cast<int>(end - pids);
}

// Sends `sig` to every leftover child and reaps, for at most `milliseconds`, until none is left.
// What a child leaves behind when it ends becomes a leftover in its turn.
bool end_leftovers_with(int sig, int milliseconds, const pid_t* spared, int count) {
  const int64_t deadline = monotonic_ms() + milliseconds;
  pid_t signalled[kMaxChildren];
  int signalled_count = 0;
  for (;;) {
    pid_t pids[kMaxChildren];
    const int left = list_leftovers(spared, count, pids);
    if (left == 0) return true;
    if (monotonic_ms() >= deadline) return false;
    for (int i = 0; i < left; i++) {
      const bool known =
          std::find(signalled, signalled + signalled_count, pids[i]) != signalled + signalled_count;
      if (!known && signalled_count < kMaxChildren) {
        signalled[signalled_count++] = pids[i];
        signal_with_its_group(pids[i], sig);
      }
      wait_within(pids[i], i == 0 ? 10 : 0, nullptr);
    }
  }
}

}  // namespace

void initialize_globals() {
  LOG_AS(ANDROID_LOG_DEBUG, "initialize_globals", "function invoked");
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

bool add_to_group(int32_t* table, pid_t pid) {
  for (int slot = 1; table != nullptr && slot <= kGroupSlots; slot++) {
    if (table[slot] != 0) continue;
    table[slot] = pid;
    return true;
  }
  signal_process(pid, SIGTERM);
  return false;
}

int wait_child_to_finish(pid_t pid, int ticks) {
  const int64_t start = monotonic_ms();
  const int polls = ticks > 0 ? ticks + 1 : 1;
  if (wait_within(pid, polls * kTickMs, nullptr) != 0) {
    const int64_t polled = (monotonic_ms() - start) / kTickMs;
    LOGD("%d wait child %d to finish wastes %f secs", getpid(), pid,
         static_cast<double>(polled) / 10.0);
    return 1;
  }
  LOGE("wait child %d timeout, kill it", pid);
  kill_with_group(pid);
  sleep_ms(kTickMs);
  return 0;
}

int await_request_child(const char* function, pid_t pid, int poll_ms, int polls) {
  s_request_pid = pid;
  int count = 0;
  for (; wait_within(pid, 0, nullptr) == 0; count++) {
    LOG_AS(ANDROID_LOG_DEBUG, function, "wait child %d to finish.", pid);
    if (wait_within(pid, poll_ms, nullptr) != 0) break;
    safe_point();
    if (count < polls) continue;
    LOG_AS(ANDROID_LOG_ERROR, function, "wait child %d timeout, kill it", pid);
    kill_with_group(pid);
    sleep_ms(kTickMs);
  }
  s_request_pid = 0;
  return count;
}

int set_process_name(const char* name, int /*ignored*/) {
  char composed[128] = {};
  format_cut(composed, "harrowmossd:debug-%s", name);
  LOGD("pid %d : %s", getpid(), composed);
  const size_t length = strlen(composed);
  const char* tail = length >= kKernelNameLength ? composed + length - kKernelNameLength : composed;
  return prctl(PR_SET_NAME, tail, 0, 0, 0);
}

char* build_process_name(const char* name, char* buf, int is_debug, bool vesk_suffix) {
  append_or_abort(buf, kProcessNameSize, "harrowmossd");
  append_or_abort(buf, kProcessNameSize, is_debug > 0 ? ":debug-" : ":general-");
  append_or_abort(buf, kProcessNameSize, name);
  if (vesk_suffix) append_or_abort(buf, kProcessNameSize, "-vesk");
  return buf;
}

void end_leftover_children(const pid_t* spared, int count) {
  if (!is_main_process()) return;
  if (end_leftovers_with(SIGTERM, kLeftoverMs, spared, count)) return;
  LOGE("leftover children do not end, kill them");
  end_leftovers_with(SIGKILL, kLeftoverMs, spared, count);
}
