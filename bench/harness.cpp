#include "bench/harness.h"

#include <errno.h>
#include <sched.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>

#include "phone/wait.h"

namespace {

constexpr int kLimitMs = 30000;

double quantile(std::vector<double> values, double part) {
  std::sort(values.begin(), values.end());
  const double at = part * static_cast<double>(values.size() - 1);
  const size_t below = static_cast<size_t>(at);
  const size_t above = std::min(below + 1, values.size() - 1);
  return values[below] + (at - static_cast<double>(below)) * (values[above] - values[below]);
}

int64_t clock_ns(clockid_t clock) {
  timespec now = {};
  clock_gettime(clock, &now);
  return now.tv_sec * INT64_C(1000000000) + now.tv_nsec;
}

// Waits for the next stop of a traced process.
int next_stop(pid_t tracee) {
  int status = 0;
  if (waitpid(tracee, &status, __WALL) != tracee || !WIFSTOPPED(status))
    fail("a traced process ended");
  return status;
}

void attach(pid_t tracee) {
  if (ptrace(PTRACE_SEIZE, tracee, 0, PTRACE_O_TRACESYSGOOD) != 0 ||
      ptrace(PTRACE_INTERRUPT, tracee, 0, 0) != 0)
    fail(std::string("ptrace: ") + strerror(errno));
  next_stop(tracee);
}

// Resumes the tracee to its next system call entry and returns the call's number. Pending signals
// are delivered.
long next_call(pid_t tracee) {
  for (long sig = 0;;) {
    if (ptrace(PTRACE_SYSCALL, tracee, 0, sig) != 0) fail("ptrace: a tracee does not go on");
    const int stop = WSTOPSIG(next_stop(tracee));
    sig = 0;
    if (stop != (SIGTRAP | 0x80)) {
      if (stop != SIGTRAP) sig = stop;
      continue;
    }
    __ptrace_syscall_info info = {};
    ptrace(PTRACE_GET_SYSCALL_INFO, tracee, sizeof(info), &info);
    if (info.op == PTRACE_SYSCALL_INFO_ENTRY) return static_cast<long>(info.entry.nr);
  }
}

void print_figure(const std::string& name, const std::vector<double>& values) {
  printf("{\"figure\": \"%s\", \"value\": %.6g", name.c_str(), median(values));
  if (values.size() > 1)
    printf(", \"low\": %.6g, \"high\": %.6g, \"rounds\": %zu", quantile(values, 0.25),
           quantile(values, 0.75), values.size());
  printf("}\n");
  fflush(stdout);
}

}  // namespace

BlockTimes alternate(int rounds, const std::vector<Contender>& contenders) {
  const size_t count = contenders.size();
  BlockTimes times(count);
  for (int round = -1; round < rounds; round++) {
    for (size_t i = 0; i < count; i++) {
      const size_t which = (i + static_cast<size_t>(round + 1)) % count;
      const int64_t ns = contenders[which].block();
      if (round >= 0) times[which].push_back(static_cast<double>(ns));
    }
  }
  return times;
}

void report(const std::string& name, double value) {
  print_figure(name, {value});
}

void report_ratio(const std::string& name, const std::vector<double>& above,
                  const std::vector<double>& below) {
  std::vector<double> ratios;
  for (size_t i = 0; i < above.size(); i++) ratios.push_back(above[i] / below[i]);
  print_figure(name, ratios);
}

void report_median(const std::string& name, std::vector<double> values) {
  print_figure(name, values);
}

void report_point(const char* plot, double x, const std::vector<double>& values) {
  printf("{\"plot\": \"%s\", \"x\": %.6g, \"y\": [", plot, x);
  for (size_t i = 0; i < values.size(); i++) printf("%s%.6g", i == 0 ? "" : ", ", values[i]);
  printf("]}\n");
  fflush(stdout);
}

double median(std::vector<double> values) {
  return quantile(std::move(values), 0.5);
}

int64_t wall_ns() {
  return clock_ns(CLOCK_MONOTONIC);
}

int64_t cpu_ns(pid_t pid) {
  clockid_t clock;
  if (clock_getcpuclockid(pid, &clock) != 0) fail("no CPU clock of " + std::to_string(pid));
  return clock_ns(clock);
}

int64_t wall_time_of(const std::function<void()>& body) {
  const int64_t start = wall_ns();
  body();
  return wall_ns() - start;
}

int64_t cpu_time_of(const std::function<void()>& body) {
  const int64_t start = clock_ns(CLOCK_THREAD_CPUTIME_ID);
  body();
  return clock_ns(CLOCK_THREAD_CPUTIME_ID) - start;
}

void pin(pid_t pid) {
  static const int cpu = [] {
    cpu_set_t allowed;
    sched_getaffinity(0, sizeof(allowed), &allowed);
    int last = CPU_SETSIZE - 1;
    while (last > 0 && !CPU_ISSET(last, &allowed)) last--;
    return last;
  }();
  cpu_set_t only;
  CPU_ZERO(&only);
  CPU_SET(cpu, &only);
  if (sched_setaffinity(pid, sizeof(only), &only) != 0) fail("cannot pin a process");
}

pid_t spawn(const std::function<void()>& body) {
  const pid_t pid = fork();
  if (pid < 0) fail("cannot fork");
  if (pid > 0) return pid;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  body();
  _exit(0);
}

void end(pid_t pid) {
  signal_one(pid, SIGKILL);
  waitpid(pid, nullptr, 0);
}

CallCounts count_calls(pid_t tracee, long mark, int64_t periods) {
  attach(tracee);
  while (next_call(tracee) != mark) {
  }
  CallCounts calls;
  for (int64_t passed = 0; passed < periods;) {
    const long call = next_call(tracee);
    if (call != SYS_restart_syscall) calls[call]++;
    passed += call == mark ? 1 : 0;
  }
  ptrace(PTRACE_DETACH, tracee, 0, 0);
  return calls;
}

int64_t total_calls(const CallCounts& calls) {
  int64_t total = 0;
  for (const auto& [call, count] : calls) total += count;
  return total;
}

int64_t count_instructions(pid_t tracee, long mark) {
  attach(tracee);
  while (next_call(tracee) != mark) {
  }
  // Leaves the marking call, then single-steps to its next entry from there.
  ptrace(PTRACE_SYSCALL, tracee, 0, 0);
  next_stop(tracee);
  const auto place = [tracee] {
    __ptrace_syscall_info info = {};
    ptrace(PTRACE_GET_SYSCALL_INFO, tracee, sizeof(info), &info);
    return info.instruction_pointer;
  };
  const auto behind_mark = place();
  int64_t count = 0;
  do {
    if (ptrace(PTRACE_SINGLESTEP, tracee, 0, 0) != 0) fail("ptrace: no single steps");
    next_stop(tracee);
    count++;
  } while (place() != behind_mark);
  ptrace(PTRACE_DETACH, tracee, 0, 0);
  return count;
}

void await(const char* what, const std::function<bool()>& done) {
  const int64_t deadline = wall_ns() + kLimitMs * INT64_C(1000000);
  const timespec pause = {0, 1000000};
  while (!done()) {
    if (wall_ns() > deadline) fail(std::string("gave up waiting for ") + what);
    nanosleep(&pause, nullptr);
  }
}

void fail(const std::string& what) {
  fprintf(stderr, "bench: %s\n", what.c_str());
  exit(2);
}
