#include "base/noted_signals.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "base/process.h"
#include "phone/wait.h"

namespace {

std::vector<int> s_handled;

void handle(int sig) {
  s_handled.push_back(sig);
}

// Handling one signal notes another one.
void handle_and_note(int sig) {
  s_handled.push_back(sig);
  if (sig == SIGTERM) note_signal(SIGINT);
}

// The state is the process's own, so each test works in a forked "daemon". A deadline ends one that
// waits for ever.
bool holds_in_daemon(const std::function<bool()>& body, bool with_pipe = true) {
  const pid_t pid = fork();
  if (pid == 0) {
    alarm(30);
    s_harrowmossd_pid = getpid();
    if (with_pipe && !open_signal_pipe()) _exit(2);
    _exit(body() ? 0 : 1);
  }
  int status = -1;
  waitpid(pid, &status, 0);
  return status == 0;
}

// Every number is kept, once, whatever the order in which they came.
TEST(NotedSignals, AreHandledOnceEachInAscendingOrder) {
  EXPECT_TRUE(holds_in_daemon([] {
    std::vector<int> all;
    for (int sig = 64; sig >= 1; sig--) {
      note_signal(sig);
      note_signal(65 - sig);
      all.push_back(65 - sig);
    }
    handle_noted_signals(handle);
    handle_noted_signals(handle);
    return s_handled == all;
  }));
}

// A safe point inside of a guard waits for its end, and that of every guard around it.
TEST(NotedSignals, NoSafePointWhileAnyGuardLives) {
  EXPECT_TRUE(holds_in_daemon([] {
    safe_point();  // without a handler: nothing
    set_safe_point_handler(handle, [] {});
    note_signal(SIGTERM);
    {
      const NoSafePoints outer;
      { const NoSafePoints inner; }
      safe_point();
    }
    const bool none = s_handled.empty();
    safe_point();
    return none && s_handled == std::vector<int>{SIGTERM};
  }));
}

// A storm fills the pipe: noting must neither block nor lose the signal, and must keep errno.
TEST(NotedSignals, AStormNeitherBlocksNorGetsLost) {
  EXPECT_TRUE(holds_in_daemon([] {
    errno = ENOTTY;
    for (int i = 0; i < 200000; i++) note_signal(SIGCHLD);
    if (errno != ENOTTY) return false;
    handle_noted_signals(handle);
    return s_handled == std::vector<int>{SIGCHLD};
  }));
}

TEST(NotedSignals, OneNotedWhileHandlingIsHandledByTheNextLook) {
  EXPECT_TRUE(holds_in_daemon([] {
    int ends[2];
    if (pipe(ends) != 0 || write(ends[1], "x", 1) != 1) return false;
    note_signal(SIGTERM);
    wait_ready(ends[0], POLLIN, handle_and_note);  // ready, but what is noted comes first
    const bool at_most_one = s_handled == std::vector<int>{SIGTERM};
    wait_ready(ends[1], POLLOUT, handle_and_note);
    return at_most_one && s_handled == std::vector<int>{SIGTERM, SIGINT};
  }));
}

TEST(NotedSignals, AChildHandlesNothingThatWasNotedForItsParent) {
  EXPECT_TRUE(holds_in_daemon([] {
    note_signal(SIGTERM);
    const pid_t child = fork_process(Group::kInherit);
    if (child == 0) {
      s_harrowmossd_pid = getpid();  // even one that took itself for the main process
      handle_noted_signals(handle);
      _exit(s_handled.empty() ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    handle_noted_signals(handle);
    return status == 0 && s_handled == std::vector<int>{SIGTERM};
  }));
}

// 'R' running, 'S' sleeping ...
char state_of(pid_t pid) {
  std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
  std::string text;
  std::getline(stat, text);
  const size_t name_end = text.rfind(')');
  return name_end == std::string::npos ? '?' : text[name_end + 2];
}

// The limits before.
rlimit limit_descriptors(rlim_t most) {
  rlimit before;
  getrlimit(RLIMIT_NOFILE, &before);
  const rlimit now = {most, before.rlim_max};
  setrlimit(RLIMIT_NOFILE, &now);
  return before;
}

int s_wake_fd = -1;

void handle_and_wake(int sig) {
  s_handled.push_back(sig);
  (void)!write(s_wake_fd, "x", 1);
}

// A signal that arrives while the main thread waits is handled during the wait. The descriptor
// becomes ready only through that, so the wait ends only if the signal woke it.
TEST(WaitReady, ASignalWakesTheWait) {
  EXPECT_TRUE(holds_in_daemon([] {
    int ends[2];
    if (pipe(ends) != 0) return false;
    s_wake_fd = ends[1];
    signal(SIGUSR2, note_signal);
    const pid_t sender = fork();
    if (sender == 0) {
      while (state_of(getppid()) != 'S') sched_yield();  // it sleeps in wait_ready()
      signal_one(getppid(), SIGUSR2);
      _exit(0);
    }
    wait_ready(ends[0], POLLIN, handle_and_wake);
    return s_handled == std::vector<int>{SIGUSR2};
  }));
}

// No descriptor was free when the pipe was to be opened: a note wakes nobody, but is seen. Once one
// is free again the pipe is there.
TEST(WaitReady, WithoutAPipeNothingNotedIsLost) {
  EXPECT_TRUE(holds_in_daemon(
      [] {
        int ends[2];
        if (pipe(ends) != 0) return false;
        s_wake_fd = ends[1];
        const int next = dup(0);
        close(next);
        const rlimit before = limit_descriptors(0);
        note_signal(SIGUSR2);
        wait_ready(ends[0], POLLIN, handle_and_wake);
        const bool without = fcntl(next, F_GETFD) == -1;
        setrlimit(RLIMIT_NOFILE, &before);
        note_signal(SIGUSR1);
        wait_ready(ends[0], POLLIN, handle);
        return without && fcntl(next, F_GETFD) == FD_CLOEXEC &&
               s_handled == std::vector<int>{SIGUSR2, SIGUSR1};
      },
      false));
}

TEST(SignalScope, CountsNestedHandlers) {
  EXPECT_FALSE(in_signal_handler());
  {
    const SignalScope outer;
    {
      const SignalScope inner;
      EXPECT_TRUE(in_signal_handler());
    }
    EXPECT_TRUE(in_signal_handler());
    EXPECT_FALSE(may_convert_time());  // the interrupted code may hold the C library's lock
  }
  EXPECT_FALSE(in_signal_handler());
}

}  // namespace
