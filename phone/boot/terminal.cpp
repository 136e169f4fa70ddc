#include "phone/boot/terminal.h"

#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/signalfd.h>
#include <termios.h>

#include "phone/util.h"

bool on_terminal() {
  return isatty(STDIN_FILENO) && isatty(STDOUT_FILENO);
}

namespace {

void copy_window_size(int master) {
  struct winsize size;
  if (ioctl(STDIN_FILENO, TIOCGWINSZ, &size) == 0) ioctl(master, TIOCSWINSZ, &size);
}

// False when `from` has ended.
bool pump(int from, int to) {
  char block[4096];
  const ssize_t n = read(from, block, sizeof block);
  if (n < 0 && errno == EINTR) return true;
  if (n <= 0) return false;
  for (ssize_t done = 0; done < n;) {
    const ssize_t written = write(to, block + done, n - done);
    if (written < 0 && errno != EINTR) return false;
    if (written > 0) done += written;
  }
  return true;
}

void relay_until_end(int master, int pidfd, int timeout_ms, int window_changes, bool* timed) {
  enum { kEnd, kMaster, kInput, kWindow, kCount };
  struct pollfd polled[kCount] = {{pidfd, POLLIN, 0},
                                  {master, POLLIN, 0},
                                  {STDIN_FILENO, POLLIN, 0},
                                  {window_changes, POLLIN, 0}};
  while (true) {
    const int ready = poll(polled, kCount, timeout_ms);
    if (ready < 0 && errno == EINTR) continue;
    *timed = ready == 0;
    if (ready <= 0) return;
    if (polled[kWindow].revents != 0) {
      struct signalfd_siginfo info;
      (void)!read(window_changes, &info, sizeof info);
      copy_window_size(master);
    }
    if (polled[kInput].revents != 0 && !pump(STDIN_FILENO, master)) polled[kInput].fd = -1;
    if (polled[kMaster].revents != 0 && !pump(master, STDOUT_FILENO)) polled[kMaster].fd = -1;
    // Show all output before ending.
    if (polled[kEnd].revents != 0 && (polled[kMaster].fd < 0 || polled[kMaster].revents == 0))
      return;
  }
}

}  // namespace

bool relay_terminal(int master, int pidfd, int timeout_ms) {
  struct termios original, raw;
  if (tcgetattr(STDIN_FILENO, &original) != 0) return true;
  raw = original;
  cfmakeraw(&raw);
  sigset_t window;
  sigemptyset(&window);
  sigaddset(&window, SIGWINCH);
  sigprocmask(SIG_BLOCK, &window, nullptr);
  Fd window_changes(signalfd(-1, &window, SFD_CLOEXEC));
  copy_window_size(master);
  tcsetattr(STDIN_FILENO, TCSADRAIN, &raw);
  bool timed_out = false;
  relay_until_end(master, pidfd, timeout_ms, window_changes.get(), &timed_out);
  tcsetattr(STDIN_FILENO, TCSADRAIN, &original);
  return !timed_out;
}
