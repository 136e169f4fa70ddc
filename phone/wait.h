// Deadlines and signals for everything that drives or tests the daemon. Uses nothing else: programs
// inside a phone include it too.
#pragma once

#include <errno.h>
#include <signal.h>
#include <stdint.h>
#include <sys/types.h>
#include <time.h>
#include <unistd.h>

// Limits for waits. They measure nothing: they only bound a wait on a busy machine. Durations are
// measured from the daemon's own log.
constexpr int kOwedMs = 30000;     // effects of another process
constexpr int kTimerMs = 60000;    // effects of a timer: the monitor's 5 s, init's restart
constexpr int kSwitchMs = 120000;  // a start, a stop, a bundle: the sum of its bounded waits

// Milliseconds of CLOCK_MONOTONIC.
inline int64_t monotonic_now_ms() {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * INT64_C(1000) + now.tv_nsec / 1000000;
}

// Polls `done` every 2 ms; false after `limit_ms` of CLOCK_MONOTONIC, but not before 5 polls,
// because one scan of a busy machine's processes can take much of the limit.
template <typename Done>
bool eventually(Done done, int limit_ms = kOwedMs) {
  constexpr int kStepMs = 2, kFewestPolls = 5;
  const int64_t deadline = monotonic_now_ms() + limit_ms;
  for (int polls = 1;; polls++) {
    if (done()) return true;
    if (polls >= kFewestPolls && monotonic_now_ms() >= deadline) return false;
    usleep(kStepMs * 1000);
  }
}

// Sends `sig` to one process. False with errno. A pid of 1 or less, left by a failed lookup, gives
// EINVAL: for kill(2) it would be a group.
inline bool signal_one(pid_t pid, int sig) {
  if (pid > 1) return kill(pid, sig) == 0;
  errno = EINVAL;
  return false;
}
