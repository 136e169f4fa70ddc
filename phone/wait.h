// How long whoever drives or tries the daemon waits for other processes, and how they are
// signalled. Stands alone: what runs inside a phone uses it too.
#pragma once

#include <errno.h>
#include <signal.h>
#include <stdint.h>
#include <sys/types.h>
#include <time.h>
#include <unistd.h>

// Every deadline is one of these. None of them measures anything: they only say when to give up on
// a machine that is busy with other work. What is measured comes from the daemon's own log.
constexpr int kOwedMs = 30000;     // what another process does without being waited for
constexpr int kTimerMs = 60000;    // what comes at a timer: the monitor's 5 s, init's restart
constexpr int kSwitchMs = 120000;  // a start, a stop, a bundle: all of its bounded waits together

// Milliseconds of CLOCK_MONOTONIC.
inline int64_t monotonic_now_ms() {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * INT64_C(1000) + now.tv_nsec / 1000000;
}

// Polls `done` every 2 ms; false after `limit_ms` of CLOCK_MONOTONIC, but not before 5 looks: a
// look at a busy machine's processes can take much of the limit. For effects that another process
// owes us. A `done` that keeps what it saw in a value spares the caller a second look.
template <typename Done>
bool eventually(Done done, int limit_ms = kOwedMs) {
  constexpr int kStepMs = 2, kFewestLooks = 5;
  const int64_t deadline = monotonic_now_ms() + limit_ms;
  for (int looks = 1;; looks++) {
    if (done()) return true;
    if (looks >= kFewestLooks && monotonic_now_ms() >= deadline) return false;
    usleep(kStepMs * 1000);
  }
}

// Sends `sig` to one process. False with errno when that fails; a number of 1 or less, which a
// failed look-up leaves behind, is refused with EINVAL: kill(2) would take it for a whole group.
inline bool signal_one(pid_t pid, int sig) {
  if (pid > 1) return kill(pid, sig) == 0;
  errno = EINVAL;
  return false;
}
