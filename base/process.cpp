#include "base/process.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>

#include "base/scoped.h"
#include "base/thread.h"

int32_t s_harrowmossd_pid = -1;

namespace {

constexpr int kMaxClosedInChildren = 4;
int s_closed_in_children[kMaxClosedInChildren];
std::atomic<int> s_closed_in_children_count{0};  // raised after the slot is filled
int s_keepable_fd = -1;
bool s_is_stray = false;

// A process without a SIGCHLD handler, or an extra thread, is not woken by a child's end.
constexpr int64_t kPollMs = 100;

const pthread_t s_first_thread = pthread_self();  // static initialisation runs on it

// 0: not asked yet. The hook corrects it in the child of any fork().
std::atomic<pid_t> s_own_pid{0};
const bool s_fork_is_noticed = pthread_atfork(nullptr, nullptr, [] { s_own_pid = getpid(); }) == 0;

pid_t s_forked_by = -1;  // the process that forked this one

// Fields of /proc/<pid>/stat.
struct ProcessStat {
  char state;  // 'Z': ended, not yet reaped
  pid_t parent;
  pid_t process_group;
};

// False when there is no process `pid`.
bool read_stat(pid_t pid, ProcessStat* out) {
  char path[32];
  snprintf(path, sizeof(path), "/proc/%d/stat", pid);
  ScopedFd fd(open(path, O_RDONLY | O_CLOEXEC));
  if (!fd.valid()) return false;
  char text[512];
  const ssize_t size = read(fd.get(), text, sizeof(text) - 1);
  if (size <= 0) return false;
  text[size] = '\0';
  const char* after_name = strrchr(text, ')');  // the name may hold ')' and blanks
  return after_name != nullptr &&
         sscanf(after_name, ") %c %d %d", &out->state, &out->parent, &out->process_group) == 3;
}

// Asks the kernel and not /proc, which cannot be read without a free descriptor.
bool is_own_child(pid_t pid) {
  siginfo_t info;
  return waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT) == 0;
}

bool parent_is_ours(pid_t parent) {
  return parent == getpid() || parent == s_harrowmossd_pid || parent == s_forked_by;
}

// Calls `visit(pid, stat)` for every process until it returns true; returns whether one did.
template <typename Visit>
bool any_process(Visit visit) {
  ScopedDir proc(opendir("/proc"));
  if (!proc.valid()) return false;
  while (const dirent* entry = readdir(proc.get())) {
    const pid_t pid = atoi(entry->d_name);
    ProcessStat stat;
    if (pid > 0 && read_stat(pid, &stat) && visit(pid, stat)) return true;
  }
  return false;
}

void close_inherited(bool keep_keepable) {
  for (int i = 0; i < s_closed_in_children_count; i++) close(s_closed_in_children[i]);
  s_closed_in_children_count = 0;
  if (s_keepable_fd == -1 || keep_keepable) return;
  close(s_keepable_fd);
  s_keepable_fd = -1;
}

pid_t fork_with(Group where, bool keep_keepable) {
  // A handler that ran in the child before its mask is set would take it for its parent.
  ScopedSignalBlocker until_set;
  const pid_t parent = getpid();
  const pid_t pid = fork();
  if (pid == 0) {
    s_forked_by = parent;
    if (where == Group::kNew) setpgid(0, 0);
    close_inherited(keep_keepable);
    sigemptyset(&until_set.before());
    return 0;
  }
  const int saved_errno = errno;
  // Both sides do it, so that neither sees the child in the old group.
  if (pid > 0 && where == Group::kNew) setpgid(pid, pid);
  errno = saved_errno;
  return pid;
}

timespec to_timespec(int64_t milliseconds) {
  return {static_cast<time_t>(milliseconds / 1000),
          static_cast<long>(milliseconds % 1000 * 1000000)};
}

}  // namespace

bool is_main_process() {
  return own_pid() == s_harrowmossd_pid;
}

pid_t own_pid() {
  pid_t pid = s_own_pid.load(std::memory_order_relaxed);
  if (pid != 0) return pid;
  const pid_t asked = getpid();
  // A handler may have forked since; its child has set the value already.
  if (s_fork_is_noticed && !s_own_pid.compare_exchange_strong(pid, asked)) return pid;
  return asked;
}

bool on_first_thread() {
  return pthread_equal(pthread_self(), s_first_thread) != 0;
}

pid_t own_thread_id() {
  return on_first_thread() ? own_pid() : gettid();
}

pid_t parent_pid() {
  static std::atomic<pid_t> main_parent{0};
  if (!is_main_process()) return getppid();
  pid_t known = main_parent.load(std::memory_order_relaxed);
  if (known == 0) main_parent.store(known = getppid(), std::memory_order_relaxed);
  return known;
}

pid_t fork_process(Group where) {
  return fork_with(where, false);
}

pid_t fork_process_keeping_fd(Group where) {
  const pid_t pid = fork_with(where, true);
  if (pid == 0) s_is_stray = true;  // unless it becomes another program
  return pid;
}

bool is_stray_child() {
  return s_is_stray;
}

void end_stray_child() {
  if (s_is_stray) end_process(0);
}

void close_in_children(int fd) {
  if (s_closed_in_children_count == kMaxClosedInChildren) abort();
  s_closed_in_children[s_closed_in_children_count] = fd;
  s_closed_in_children_count++;
}

void set_keepable_fd(int fd) {
  s_keepable_fd = fd;
}

void end_process(int status) {
  _exit(status);
}

bool is_ours(pid_t pid) {
  if (pid <= 1) return false;
  ProcessStat stat;
  return is_own_child(pid) || (read_stat(pid, &stat) && parent_is_ours(stat.parent));
}

bool is_child_of(pid_t pid, pid_t parent) {
  ProcessStat stat;
  return pid > 1 && read_stat(pid, &stat) && stat.parent == parent;
}

int signal_process(pid_t pid, int sig) {
  if (!is_ours(pid)) return -1;
  return kill(pid, sig);
}

int signal_group(pid_t pid, int sig) {
  if (pid <= 1) return -1;
  const auto is_our_member = [pid](pid_t, const ProcessStat& stat) {
    return stat.process_group == pid && parent_is_ours(stat.parent);
  };
  const bool ours = is_ours(pid);
  const pid_t group = ours ? getpgid(pid) : any_process(is_our_member) ? pid : -1;
  const int group_result = group > 1 && group != getpgrp() ? kill(-group, sig) : -1;
  return (ours && kill(pid, sig) == 0) || group_result == 0 ? 0 : -1;
}

void kill_tree(pid_t pid) {
  if (!is_ours(pid)) return;
  constexpr int kMost = 64;
  pid_t tree[kMost] = {pid};
  int count = 1;
  // Collect before killing: orphans are re-parented.
  for (int i = 0; i < count; i++) {
    any_process([&](pid_t child, const ProcessStat& stat) {
      if (stat.parent == tree[i] && count < kMost) tree[count++] = child;
      return count == kMost;
    });
  }
  signal_group(pid, SIGKILL);
  for (int i = 1; i < count; i++) kill(tree[i], SIGKILL);
}

pid_t wait_within(pid_t pid, int milliseconds, int* status) {
  // SIGCHLD gets through only inside ppoll(), so the child's end cannot slip in between waitpid()
  // and the sleep. On an extra thread it stays blocked: its handler belongs to the first one.
  ScopedSignalBlocker outside_ppoll(SIGCHLD);
  sigset_t waiting = outside_ppoll.before();
  if (on_first_thread()) sigdelset(&waiting, SIGCHLD);
  const int64_t deadline = monotonic_ms() + milliseconds;
  for (;;) {
    const pid_t result = waitpid(pid, status, WNOHANG);
    if (result == -1 && errno == EINTR) continue;
    const int64_t left = deadline - monotonic_ms();
    if (result != 0 || left <= 0) return result;
    const timespec timeout = to_timespec(std::min<int64_t>(left, kPollMs));
    ppoll(nullptr, 0, &timeout, &waiting);
  }
}

pid_t wait_for(pid_t pid, int* status) {
  pid_t result;
  do {
    result = waitpid(pid, status, 0);
  } while (result == -1 && errno == EINTR);
  return result;
}

void sleep_ms(int milliseconds) {
  const timespec deadline = to_timespec(monotonic_ms() + milliseconds);
  while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &deadline, nullptr) == EINTR) {
  }
}

int64_t monotonic_ms() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

pid_t reap_any(int* status) {
  pid_t result;
  do {
    result = waitpid(-1, status, WNOHANG | __WNOTHREAD);
  } while (result == -1 && errno == EINTR);
  return result;
}

int list_group(pid_t leader, pid_t* pids, int size) {
  int count = 0;
  any_process([&](pid_t pid, const ProcessStat& stat) {
    if (stat.process_group == leader && stat.state != 'Z') pids[count++] = pid;
    return count == size;
  });
  return count;
}

int list_group_leaders(pid_t parent, pid_t* pids, int size) {
  int count = 0;
  any_process([&](pid_t pid, const ProcessStat& stat) {
    if (stat.parent == parent && stat.process_group == pid && stat.state != 'Z') {
      pids[count++] = pid;
    }
    return count == size;
  });
  return count;
}

int list_children(pid_t* pids, int size) {
  int count = 0;
  const pid_t self = getpid();
  any_process([&](pid_t pid, const ProcessStat& stat) {
    siginfo_t info;
    if (stat.parent == self && waitid(P_PID, static_cast<id_t>(pid), &info,
                                      WEXITED | WNOHANG | WNOWAIT | __WNOTHREAD) == 0) {
      pids[count++] = pid;
    }
    return count == size;
  });
  return count;
}
