#include "base/process.h"

#include <signal.h>
#include <sys/time.h>

#include <atomic>
#include <thread>

#include "base/local_time.h"
#include "tests/inphone/inphone.h"

namespace {

using namespace inphone;

// The text that `body` writes in a child made by `fork_it`.
bool is_true_in_child(
    const std::function<bool()>& body,
    const std::function<pid_t()>& fork_it = [] { return fork_process(Group::kInherit); }) {
  const pid_t pid = fork_it();
  if (pid == 0) _exit(body() ? 0 : 1);
  int status = -1;
  wait_for(pid, &status);
  return status == 0;
}

bool is_open(int fd) {
  return fcntl(fd, F_GETFD) != -1;
}

TEST(ForkProcess, AChildHasNoneOfTheMainProcesssSockets) {
  int named[2];
  int others[2];
  ASSERT_EQ(pipe(named), 0);
  ASSERT_EQ(pipe(others), 0);
  close_in_children(named[0]);
  close_in_children(named[1]);
  set_keepable_fd(others[0]);
  EXPECT_TRUE(is_true_in_child([&] {
    return !is_open(named[0]) && !is_open(named[1]) && !is_open(others[0]) && is_open(others[1]);
  }));
  EXPECT_TRUE(is_true_in_child(
      [&] { return !is_open(named[0]) && !is_open(named[1]) && is_open(others[0]); },
      [] { return fork_process_keeping_fd(Group::kInherit); }));
  EXPECT_TRUE(is_open(named[0]) && is_open(named[1]) && is_open(others[0]));
  // A grandchild must not close descriptors that reuse the numbers.
  EXPECT_TRUE(is_true_in_child([&] {
    const int fd = dup(others[1]);
    return fd == named[0] && is_true_in_child([fd] { return is_open(fd); });
  }));
}

// A stop must end its workers also without a descriptor for /proc.
TEST(SignalProcess, NeedsNoDescriptorForOwnChildren) {
  for (const bool as_group : {false, true}) {
    EXPECT_TRUE(is_true_in_child([as_group] {
      const pid_t child = fork_process(Group::kNew);
      if (child == 0) {
        for (;;) pause();
      }
      const NoDescriptors none;
      const bool blind = open("/proc/self/stat", O_RDONLY | O_CLOEXEC) == -1;
      const int result = as_group ? signal_group(child, SIGKILL) : signal_process(child, SIGKILL);
      int status = 0;
      return blind && result == 0 && wait_for(child, &status) == child &&
             signal_process(child, SIGKILL) == -1 && signal_process(getppid(), 0) == -1;
    })) << as_group;
  }
}

TEST(ForkProcess, AChildHasNoSignalBlockedAndTheParentKeepsItsMask) {
  sigset_t term, now;
  sigemptyset(&term);
  sigaddset(&term, SIGTERM);
  sigprocmask(SIG_SETMASK, &term, nullptr);
  EXPECT_TRUE(is_true_in_child([] {
    sigset_t mask;
    sigprocmask(SIG_SETMASK, nullptr, &mask);
    return sigisemptyset(&mask) == 1;
  }));
  sigprocmask(SIG_SETMASK, nullptr, &now);
  EXPECT_TRUE(sigismember(&now, SIGTERM) == 1 && sigismember(&now, SIGCHLD) == 0);
}

TEST(ForkProcess, GroupsAreSetWhenForkReturns) {
  for (int i = 0; i < 100; i++) {
    const pid_t pid = fork_process(Group::kNew);
    if (pid == 0) _exit(getpgrp() == getpid() ? 0 : 1);
    EXPECT_EQ(getpgid(pid), pid);
    int status = -1;
    wait_for(pid, &status);
    EXPECT_EQ(status, 0);
  }
  const pid_t ours = getpgrp();
  EXPECT_TRUE(is_true_in_child([ours] { return getpgrp() == ours; }));
}

TEST(IsOurs, AcceptsOnlyChildrenAndSiblings) {
  const ParkedChild child;
  EXPECT_TRUE(is_ours(child.pid()));
  for (const pid_t pid : {0, 1, -1, -child.pid(), getpid(), getppid(), 999999})
    EXPECT_FALSE(is_ours(pid)) << pid;
  // From a worker: the children of its parent.
  EXPECT_TRUE(is_true_in_child([&] { return is_ours(child.pid()); }));
  // From a worker's worker: only those of the main process.
  const auto grandchild_sees = [&] {
    return is_true_in_child([&] { return is_true_in_child([&] { return is_ours(child.pid()); }); });
  };
  EXPECT_FALSE(grandchild_sees());
  s_harrowmossd_pid = getpid();
  EXPECT_TRUE(grandchild_sees());
}

TEST(SignalProcess, ReachesOnlyWhatIsOurs) {
  ParkedChild child;
  for (const pid_t pid : {0, 1, -1, -child.pid(), getppid()}) {
    EXPECT_EQ(signal_process(pid, SIGTERM), -1) << pid;
    EXPECT_EQ(signal_group(pid, SIGTERM), -1) << pid;
    signal_group(pid, SIGKILL);
  }
  EXPECT_TRUE(is_running(child.pid()));
  EXPECT_EQ(signal_process(child.pid(), SIGTERM), 0);
  EXPECT_EQ(child.end_signal(), SIGTERM);
  EXPECT_EQ(signal_process(child.pid(), SIGTERM), -1);  // reaped: the pid is free
}

TEST(SignalGroup, EndsAGroupWhoseLeaderIsGone) {
  catch_sigchld();
  become_main_process();
  const auto [leader, member] = fork_with_stubborn_child(false);
  signal_one(leader, SIGKILL);
  wait_for(leader, nullptr);
  EXPECT_EQ(signal_group(leader, SIGTERM), 0);
  EXPECT_TRUE(is_running(member));
  signal_group(leader, SIGKILL);
  int status = 0;
  EXPECT_EQ(wait_within(member, 20000, &status), member);
  EXPECT_EQ(WTERMSIG(status), SIGKILL);
}

class WaitWithin : public ::testing::Test {
 protected:
  void SetUp() override { catch_sigchld(); }
};

TEST_F(WaitWithin, KeepsItsFullLengthDuringManyForeignSigchld) {
  ParkedChild stuck;
  std::atomic<bool> stop{false};
  const pid_t self = getpid();
  std::thread storm([&] {
    sigset_t chld;
    sigemptyset(&chld);
    sigaddset(&chld, SIGCHLD);
    pthread_sigmask(SIG_BLOCK, &chld, nullptr);  // the waiting thread shall get it
    while (!stop) {
      signal_one(self, SIGCHLD);
      sched_yield();
    }
  });
  const int64_t start = monotonic_ms();
  EXPECT_EQ(wait_within(stuck.pid(), 400, nullptr), 0);
  const int64_t took = monotonic_ms() - start;
  stop = true;
  storm.join();
  EXPECT_GE(took, 400);
  EXPECT_LT(took, 8000);
  EXPECT_TRUE(is_running(stuck.pid()));
}

// The duration of a wait, limited to 20 s, for a child that ends once the wait has begun.
int64_t wait_for_one_that_ends() {
  const pid_t waiter = getpid();
  const pid_t child = fork_process(Group::kInherit);
  if (child == 0) {
    const std::string stat = "/proc/" + std::to_string(waiter) + "/stat";
    while (get(stat).find(") S") == std::string::npos) sched_yield();  // it sleeps
    _exit(3);
  }
  int status = 0;
  const int64_t start = monotonic_ms();
  EXPECT_EQ(wait_within(child, 20000, &status), child);
  EXPECT_EQ(WEXITSTATUS(status), 3);
  return monotonic_ms() - start;
}

TEST_F(WaitWithin, ReturnsWhenTheChildEnds) {
  EXPECT_LT(wait_for_one_that_ends(), 8000);
  // Also when the caller blocks the signal itself, as threads do, or has no handler.
  sigset_t chld, after;
  sigemptyset(&chld);
  sigaddset(&chld, SIGCHLD);
  sigprocmask(SIG_BLOCK, &chld, nullptr);
  EXPECT_LT(wait_for_one_that_ends(), 8000);
  sigprocmask(SIG_SETMASK, nullptr, &after);
  EXPECT_EQ(sigismember(&after, SIGCHLD), 1);
  sigprocmask(SIG_UNBLOCK, &chld, nullptr);
  signal(SIGCHLD, SIG_DFL);
  EXPECT_LT(wait_for_one_that_ends(), 8000);
}

TEST_F(WaitWithin, PollsOnceAndRecognisesForeignProcesses) {
  ParkedChild child;
  EXPECT_EQ(wait_within(child.pid(), 0, nullptr), 0);
  EXPECT_EQ(wait_within(child.pid(), -5, nullptr), 0);
  EXPECT_EQ(wait_within(getppid(), 20000, nullptr), -1);
  EXPECT_EQ(errno, ECHILD);
  child.release();
  EXPECT_EQ(wait_within(child.pid(), 20000, nullptr), child.pid());
  EXPECT_EQ(wait_within(child.pid(), 20000, nullptr), -1);
}

TEST(SleepMs, SleepsTheFullTimeWhateverArrives) {
  signal(SIGALRM, [](int) {});
  const itimerval every = {{0, 5000}, {0, 5000}};
  setitimer(ITIMER_REAL, &every, nullptr);
  const int64_t start = monotonic_ms();
  sleep_ms(300);
  EXPECT_GE(monotonic_ms() - start, 300);
}

// The child of another thread: its waiter would miss it.
TEST(OtherThreadsChildren, AreNeitherListedNorReaped) {
  const ParkedChild own;
  pid_t theirs = 0;
  std::atomic<int> step{0};
  std::thread thread([&] {
    theirs = fork_process(Group::kInherit);
    if (theirs == 0) _exit(7);
    siginfo_t info;
    waitid(P_PID, static_cast<id_t>(theirs), &info, WEXITED | WNOWAIT);  // ended, not reaped
    step = 1;
    while (step != 2) sched_yield();
    int status = 0;
    EXPECT_EQ(wait_for(theirs, &status), theirs);
    EXPECT_EQ(WEXITSTATUS(status), 7);
  });
  while (step != 1) sched_yield();
  pid_t pids[16];
  EXPECT_EQ(list_children(pids, 16), 1);
  EXPECT_EQ(pids[0], own.pid());
  int status;
  EXPECT_EQ(reap_any(&status), 0);
  step = 2;
  thread.join();
}

TEST(ListChildren, ShowsZombiesInItsBoundsAndReapAnyTakesOneAtATime) {
  int status = 0;
  EXPECT_EQ(reap_any(&status), -1);
  ParkedChild children[2];
  EXPECT_EQ(reap_any(&status), 0);
  siginfo_t info;
  for (ParkedChild& child : children) {
    child.release();
    waitid(P_PID, static_cast<id_t>(child.pid()), &info, WEXITED | WNOWAIT);
  }
  pid_t pids[4] = {0, -7};
  EXPECT_EQ(list_children(pids, 1), 1);
  EXPECT_EQ(pids[1], -7);
  EXPECT_EQ(list_children(pids, 4), 2);
  for (const int left : {1, 0}) {
    EXPECT_GT(reap_any(&status), 0);
    EXPECT_EQ(list_children(pids, 4), left);
  }
}

// A name may look like the following fields.
TEST(ProcessStat, IsParsedAfterTheWholeName) {
  for (const char* name : {"a) Z 1 1 (b", "x ) R 2 2", ")"}) {
    const pid_t child = fork_process(Group::kNew);
    if (child == 0) {
      prctl(PR_SET_NAME, name, 0, 0, 0);
      for (;;) pause();
    }
    EXPECT_TRUE(eventually([&] {
      return get("/proc/" + std::to_string(child) + "/comm") == std::string(name) + "\n";
    }));
    pid_t pids[2] = {};
    EXPECT_TRUE(is_child_of(child, getpid())) << name;
    EXPECT_EQ(list_group(child, pids, 2), 1) << name;
    EXPECT_EQ(list_group_leaders(getpid(), pids, 2), 1) << name;
    signal_group(child, SIGKILL);
    wait_within(child, 20000, nullptr);
  }
}

TEST(MayConvertTime, OnlyTheFirstThreadOfAProcessThatAThreadDidNotFork) {
  EXPECT_TRUE(may_convert_time());
  EXPECT_TRUE(is_true_in_child([] { return may_convert_time(); }));
  bool in_thread = true;
  bool in_its_child = true;
  std::thread([&] {
    in_thread = may_convert_time();
    in_its_child = is_true_in_child([] { return may_convert_time(); });
  }).join();
  EXPECT_FALSE(in_thread);
  EXPECT_FALSE(in_its_child);
}

// With the parent's cached pid, a child's log lines and decisions would be wrong.
TEST(OwnIds, AreTheKernelsInEveryProcessAndThread) {
  const auto right = [] { return own_pid() == getpid() && own_thread_id() == gettid(); };
  const auto right_in_children = [&] {
    return is_true_in_child(right) && is_true_in_child(right, [] { return fork(); });
  };
  bool in_thread = false;
  std::thread([&] { in_thread = right() && right_in_children(); }).join();
  EXPECT_TRUE(right() && right_in_children() && in_thread);
  EXPECT_TRUE(is_true_in_child(right_in_children));
}

TEST(ParentPid, IsTheRealParentsInEveryProcess) {
  EXPECT_EQ(parent_pid(), getppid());
  s_harrowmossd_pid = getpid();
  EXPECT_EQ(parent_pid(), getppid());
  const pid_t self = getpid();
  EXPECT_TRUE(is_true_in_child([self] { return parent_pid() == self; }));
}

}  // namespace
