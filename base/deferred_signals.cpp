#include "base/deferred_signals.h"

#include <errno.h>
#include <poll.h>
#include <signal.h>

#include <atomic>

#include "base/process.h"

namespace {

constexpr int kSignals = 65;  // numbers 1..64
std::atomic<bool> s_recorded[kSignals];
std::atomic<bool> s_any_recorded{false};
void (*s_handle)(int sig) = nullptr;
void (*s_before_signals)() = nullptr;
int s_no_safe_points = 0;

// ppoll() with every signal open in the main process, so that none can slip in between a look at
// what is recorded and the sleep.
int poll_with_signals(pollfd* fds, nfds_t count, const timespec* timeout) {
  sigset_t none;
  sigemptyset(&none);
  return ppoll(fds, count, timeout, is_main_process() ? &none : nullptr);
}

bool may_handle() {
  return s_handle != nullptr && s_no_safe_points == 0 && is_main_process();
}

void handle_recorded_signals() {
  s_any_recorded = false;  // first: what arrives from here on counts for the next look
  // Before the signals: a logcat whose run is over must not be replaced in the run's directory.
  s_before_signals();
  for (int sig = 1; sig < kSignals; sig++) {
    if (s_recorded[sig].exchange(false)) s_handle(sig);
  }
}

}  // namespace

void record_signal(int sig) {
  s_recorded[sig] = true;
  s_any_recorded = true;
}

void set_signal_hooks(void (*handle)(int sig), void (*before)()) {
  s_handle = handle;
  s_before_signals = before;
}

void safe_point() {
  if (!may_handle()) return;
  const timespec at_once = {};
  poll_with_signals(nullptr, 0, &at_once);
  handle_recorded_signals();
}

ScopedNoSafePoints::ScopedNoSafePoints() {
  s_no_safe_points++;
}
ScopedNoSafePoints::~ScopedNoSafePoints() {
  s_no_safe_points--;
}

void wait_ready(int fd, short events) {
  for (;;) {
    if (s_any_recorded && may_handle()) handle_recorded_signals();
    pollfd wait = {fd, events, 0};
    if (poll_with_signals(&wait, 1, nullptr) >= 0 || (errno != EINTR && errno != EAGAIN)) return;
  }
}
