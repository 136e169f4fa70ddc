#include "base/noted_signals.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <atomic>

#include "base/process.h"

namespace {

constexpr int kSignals = 65;  // numbers 1..64
std::atomic<bool> s_noted[kSignals];
int s_signal_pipe[2] = {-1, -1};
constexpr int kBlindPollMs = 1000;          // between looks at the notes while there is no pipe
volatile sig_atomic_t s_handler_depth = 0;  // handlers that run on the first thread
void (*s_safe_point_handler)(int sig) = nullptr;
void (*s_safe_point_look)() = nullptr;
int s_no_safe_points = 0;

void drain_signal_pipe() {
  char bytes[64];
  while (read(s_signal_pipe[0], bytes, sizeof(bytes)) > 0) {
  }
}

}  // namespace

bool open_signal_pipe() {
  if (pipe2(s_signal_pipe, O_CLOEXEC | O_NONBLOCK) != 0) return false;
  close_in_children(s_signal_pipe[0]);
  close_in_children(s_signal_pipe[1]);
  return true;
}

void note_signal(int sig) {
  const int saved_errno = errno;
  s_noted[sig].store(true);
  const char byte = static_cast<char>(sig);
  (void)!write(s_signal_pipe[1], &byte, 1);  // a full pipe wakes just as well
  errno = saved_errno;
}

void handle_noted_signals(void (*handle)(int sig)) {
  if (!is_main_process()) return;
  drain_signal_pipe();  // first: what arrives from here on wakes the next wait
  // Before the signals: a logcat whose run is over must not be replaced in the run's directory.
  if (s_safe_point_look != nullptr) s_safe_point_look();
  for (int sig = 1; sig < kSignals; sig++) {
    if (s_noted[sig].exchange(false)) handle(sig);
  }
}

void set_safe_point_handler(void (*handle)(int sig), void (*look)()) {
  s_safe_point_handler = handle;
  s_safe_point_look = look;
}

void safe_point() {
  if (s_no_safe_points == 0 && s_safe_point_handler != nullptr) {
    handle_noted_signals(s_safe_point_handler);
  }
}

NoSafePoints::NoSafePoints() {
  s_no_safe_points++;
}
NoSafePoints::~NoSafePoints() {
  s_no_safe_points--;
}

void forget_noted_signals() {
  for (auto& noted : s_noted) noted.store(false);
}

void wait_ready(int fd, short events, void (*handle)(int sig)) {
  const bool main_process = is_main_process();
  for (;;) {
    // Without the pipe a signal that is noted just before poll() would wait for the next one.
    const bool was_blind = main_process && s_signal_pipe[0] == -1;
    const bool blind = was_blind && !open_signal_pipe();
    if (was_blind) handle_noted_signals(handle);
    pollfd waits[] = {{fd, events, 0}, {s_signal_pipe[0], POLLIN, 0}};
    const int ready = poll(waits, main_process ? 2 : 1, blind ? kBlindPollMs : -1);
    if (blind && ready == 0) continue;
    if (ready < 0 && errno != EINTR && errno != EAGAIN) return;
    if (ready < 0) handle_noted_signals(handle);  // also without a pipe
    if (ready > 0 && waits[1].revents != 0) handle_noted_signals(handle);
    if (ready > 0 && waits[0].revents != 0) return;
  }
}

SignalScope::SignalScope() : counted_(own_thread_id() == own_pid()) {
  if (counted_) s_handler_depth = s_handler_depth + 1;
}
SignalScope::~SignalScope() {
  if (counted_) s_handler_depth = s_handler_depth - 1;
}
bool in_signal_handler() {
  return s_handler_depth > 0;
}
