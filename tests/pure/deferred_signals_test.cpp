#include "base/deferred_signals.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "base/local_time.h"
#include "base/process.h"
#include "phone/wait.h"

namespace {

std::vector<int> s_handled;

void handle(int sig) {
  s_handled.push_back(sig);
}

// Handling one signal records another one.
void handle_and_record(int sig) {
  s_handled.push_back(sig);
  if (sig == SIGTERM) record_signal(SIGINT);
}

// The state is the process's own, so each test works in a forked "daemon". A deadline ends one that
// waits for ever.
bool holds_in_daemon(const std::function<bool()>& body) {
  const pid_t pid = fork();
  if (pid == 0) {
    alarm(30);
    s_harrowmossd_pid = getpid();
    set_signal_hooks(handle, [] {});
    _exit(body() ? 0 : 1);
  }
  int status = -1;
  waitpid(pid, &status, 0);
  return status == 0;
}

// Blocks `sig` and records it when it is delivered, as the daemon does.
void defer(int sig) {
  signal(sig, record_signal);
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, sig);
  sigprocmask(SIG_BLOCK, &set, nullptr);
}

// Every number is kept, once, whatever the order in which they came.
TEST(DeferredSignals, AreHandledOnceEachInAscendingOrder) {
  EXPECT_TRUE(holds_in_daemon([] {
    std::vector<int> all;
    for (int sig = 64; sig >= 1; sig--) {
      record_signal(sig);
      record_signal(65 - sig);
      all.push_back(65 - sig);
    }
    safe_point();
    safe_point();
    return s_handled == all;
  }));
}

TEST(DeferredSignals, NoSafePointWhileAnyGuardLives) {
  EXPECT_TRUE(holds_in_daemon([] {
    set_signal_hooks(nullptr, nullptr);
    safe_point();  // without hooks: nothing
    set_signal_hooks(handle, [] {});
    record_signal(SIGTERM);
    {
      const ScopedNoSafePoints outer;
      { const ScopedNoSafePoints inner; }
      safe_point();
    }
    const bool none = s_handled.empty();
    safe_point();
    return none && s_handled == std::vector<int>{SIGTERM};
  }));
}

// A blocked signal is delivered at a safe point and at no other time, and a busy client must not
// keep it off: wait_ready() leaves it pending while there is something to read.
TEST(DeferredSignals, AreDeliveredAtASafePoint) {
  EXPECT_TRUE(holds_in_daemon([] {
    int ends[2];
    if (pipe(ends) != 0 || write(ends[1], "x", 1) != 1) return false;
    defer(SIGUSR1);
    raise(SIGUSR1);
    wait_ready(ends[0], POLLIN);
    const bool pending = s_handled.empty();
    safe_point();
    return pending && s_handled == std::vector<int>{SIGUSR1};
  }));
}

TEST(DeferredSignals, OneRecordedWhileHandlingIsHandledByTheNextLook) {
  EXPECT_TRUE(holds_in_daemon([] {
    int ends[2];
    if (pipe(ends) != 0 || write(ends[1], "x", 1) != 1) return false;
    set_signal_hooks(handle_and_record, [] {});
    record_signal(SIGTERM);
    wait_ready(ends[0], POLLIN);  // ready, but what is recorded comes first
    const bool at_most_one = s_handled == std::vector<int>{SIGTERM};
    wait_ready(ends[1], POLLOUT);
    return at_most_one && s_handled == std::vector<int>{SIGTERM, SIGINT};
  }));
}

TEST(DeferredSignals, AChildHandlesNothingThatWasRecordedForItsParent) {
  EXPECT_TRUE(holds_in_daemon([] {
    record_signal(SIGTERM);
    const pid_t child = fork_process(Group::kInherit);
    if (child == 0) {
      safe_point();
      _exit(s_handled.empty() ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    safe_point();
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
    set_signal_hooks(handle_and_wake, [] {});
    defer(SIGUSR2);
    const pid_t sender = fork();
    if (sender == 0) {
      while (state_of(getppid()) != 'S') sched_yield();  // it sleeps in wait_ready()
      signal_one(getppid(), SIGUSR2);
      _exit(0);
    }
    wait_ready(ends[0], POLLIN);
    return s_handled == std::vector<int>{SIGUSR2};
  }));
}

TEST(ScopedSignalHandler, CountsNestedHandlers) {
  EXPECT_TRUE(may_convert_time());
  {
    const ScopedSignalHandler outer;
    {
      const ScopedSignalHandler inner;
      EXPECT_FALSE(may_convert_time());
    }
    EXPECT_FALSE(may_convert_time());
  }
  EXPECT_TRUE(may_convert_time());
}

}  // namespace
