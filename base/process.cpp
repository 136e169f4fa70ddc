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

#include "base/noted_signals.h"
#include "base/scoped.h"

int32_t s_harrowmossd_pid = -1;

namespace {

constexpr int kMaxClosedInChildren =
    4;  // listening socket, both ends of the signal pipe, one spare
int s_closed_in_children[kMaxClosedInChildren];
std::atomic<int> s_closed_in_children_count{0};  // raised when the slot holds its descriptor
int s_connection = -1;
bool s_is_stray = false;

// A process without a SIGCHLD handler, or a thread that blocks it, is not woken by a child's end.
constexpr int64_t kLookMs = 100;

const pthread_t s_first_thread = pthread_self();  // static initialisation runs on it

// 0: not asked in this process yet. Every fork() corrects it in the child, whoever calls it.
std::atomic<pid_t> s_own_pid{0};
const bool s_fork_is_noticed = pthread_atfork(nullptr, nullptr, [] { s_own_pid = getpid(); }) == 0;

pid_t s_forked_by = -1;                      // the process that forked this one
std::atomic<bool> s_may_convert_time{true};  // false in a child of an extra thread

// Fields of /proc/<pid>/stat.
struct process_stat {
  char state;  // 'Z': ended, not yet reaped
  pid_t parent;
  pid_t process_group;
};

// False when there is no process `pid`.
bool read_stat(pid_t pid, process_stat* out) {
  char path[32];
  snprintf(path, sizeof(path), "/proc/%d/stat", pid);
  ScopedFd fd(open(path, O_RDONLY | O_CLOEXEC));
  if (!fd.valid()) return false;
  char text[512];
  const ssize_t size = read(fd.get(), text, sizeof(text) - 1);
  if (size <= 0) return false;
  text[size] = '\0';
  const char* after_name = strrchr(text, ')');  // the name may hold anything, ')' and blanks too
  return after_name != nullptr &&
         sscanf(after_name, ") %c %d %d", &out->state, &out->parent, &out->process_group) == 3;
}

// Asks the kernel and not /proc, which nobody can read without a free descriptor: what this process
// has started can be ended in any case.
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
    process_stat stat;
    if (pid > 0 && read_stat(pid, &stat) && visit(pid, stat)) return true;
  }
  return false;
}

// The child's half of fork_process().
void enter_child(pid_t parent, Group where, bool keep_connection, bool may_convert) {
  s_forked_by = parent;
  s_may_convert_time = may_convert;
  if (where == Group::kOwn) setpgid(0, 0);
  forget_noted_signals();
  for (int i = 0; i < s_closed_in_children_count; i++) close(s_closed_in_children[i]);
  s_closed_in_children_count = 0;
  if (s_connection != -1 && !keep_connection) {
    close(s_connection);
    s_connection = -1;
  }
}

pid_t fork_with(Group where, bool keep_connection) {
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  // A handler that ran in the child before enter_child() would take it for the main process.
  pthread_sigmask(SIG_SETMASK, &all, &before);
  const pid_t parent = getpid();
  const bool may_convert = may_convert_time();
  const pid_t pid = fork();
  if (pid == 0) {
    enter_child(parent, where, keep_connection, may_convert);
    sigset_t none;
    sigemptyset(&none);
    pthread_sigmask(SIG_SETMASK, &none, nullptr);
    return 0;
  }
  const int saved_errno = errno;
  // Both sides do it: whichever comes first, nobody sees the child in the wrong group.
  if (pid > 0 && where == Group::kOwn) setpgid(pid, pid);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
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
  // A handler may have forked since: what the child of that fork has put there stays.
  if (s_fork_is_noticed && !s_own_pid.compare_exchange_strong(pid, asked)) return pid;
  return asked;
}

pid_t own_thread_id() {
  // A child that another thread forked has that thread as its first one, and asks.
  return pthread_equal(pthread_self(), s_first_thread) != 0 ? own_pid() : gettid();
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

pid_t fork_process_keeping_connection(Group where) {
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

void set_connection(int fd) {
  s_connection = fd;
}

void end_process(int status) {
  _exit(status);
}

bool may_convert_time() {
  return s_may_convert_time.load(std::memory_order_relaxed) && getpid() == gettid() &&
         !in_signal_handler();
}

bool is_ours(pid_t pid) {
  if (pid <= 1) return false;
  process_stat stat;
  return is_own_child(pid) || (read_stat(pid, &stat) && parent_is_ours(stat.parent));
}

bool is_child_of(pid_t pid, pid_t parent) {
  process_stat stat;
  return pid > 1 && read_stat(pid, &stat) && stat.parent == parent;
}

int signal_process(pid_t pid, int sig) {
  if (!is_ours(pid)) return -1;
  return kill(pid, sig);
}

int signal_group(pid_t leader, int sig) {
  if (leader <= 1) return -1;
  const auto is_our_member = [leader](pid_t, const process_stat& stat) {
    return stat.process_group == leader && parent_is_ours(stat.parent);
  };
  const bool ours =
      (is_own_child(leader) && getpgid(leader) == leader) || any_process(is_our_member);
  // A child that never led a group is no member of one with its number.
  const int group_result = ours ? kill(-leader, sig) : -1;
  const int leader_result = signal_process(leader, sig);
  return group_result == 0 || leader_result == 0 ? 0 : -1;
}

void signal_with_its_group(pid_t pid, int sig) {
  const pid_t process_group = is_ours(pid) ? getpgid(pid) : -1;
  if (process_group > 1 && process_group != getpgrp()) kill(-process_group, sig);
  signal_process(pid, sig);
}

void kill_with_descendants(pid_t pid) {
  if (!is_ours(pid)) return;
  constexpr int kMost = 64;
  pid_t tree[kMost] = {pid};
  int count = 1;
  // Collect before killing: orphans are re-parented.
  for (int i = 0; i < count; i++) {
    any_process([&](pid_t child, const process_stat& stat) {
      if (stat.parent == tree[i] && count < kMost) tree[count++] = child;
      return count == kMost;
    });
  }
  signal_group(pid, SIGKILL);
  for (int i = 1; i < count; i++) kill(tree[i], SIGKILL);
}

pid_t wait_within(pid_t pid, int milliseconds, int* status) {
  // SIGCHLD gets through only inside ppoll(), so the child's end cannot slip in between the look
  // and the sleep.
  sigset_t chld;
  sigset_t before;
  sigemptyset(&chld);
  sigaddset(&chld, SIGCHLD);
  pthread_sigmask(SIG_BLOCK, &chld, &before);
  const int64_t deadline = monotonic_ms() + milliseconds;
  pid_t result;
  for (;;) {
    result = waitpid(pid, status, WNOHANG);
    if (result == -1 && errno == EINTR) continue;
    const int64_t left = deadline - monotonic_ms();
    if (result != 0 || left <= 0) break;
    const timespec timeout = to_timespec(std::min<int64_t>(left, kLookMs));
    ppoll(nullptr, 0, &timeout, &before);
  }
  const int saved_errno = errno;
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  errno = saved_errno;
  return result;
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
  any_process([&](pid_t pid, const process_stat& stat) {
    if (stat.process_group == leader && stat.state != 'Z') pids[count++] = pid;
    return count == size;
  });
  return count;
}

int list_group_leaders(pid_t parent, pid_t* pids, int size) {
  int count = 0;
  any_process([&](pid_t pid, const process_stat& stat) {
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
  any_process([&](pid_t pid, const process_stat& stat) {
    siginfo_t info;
    if (stat.parent == self && waitid(P_PID, static_cast<id_t>(pid), &info,
                                      WEXITED | WNOHANG | WNOWAIT | __WNOTHREAD) == 0) {
      pids[count++] = pid;
    }
    return count == size;
  });
  return count;
}
