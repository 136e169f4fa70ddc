// Makes one system call of the daemon after the other fail, each in a fresh phone, and checks what
// the daemon guarantees under any failure. See docs/reliability.md.
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <regex>

#include "phone/host/failure.h"
#include "trials/checks.h"
#include "trials/fault_plan.h"

namespace {

using Words = std::vector<std::string>;

// Every call of kCalls in fault_injector.cpp, with errors that occur on phones: no process or
// descriptor left, disk full, broken or read-only, a client that goes away.
struct FaultRow {
  const char* call;
  int error;
};
// clang-format off
constexpr FaultRow kFaults[] = {
    {"fork",    EAGAIN}, {"fork",   ENOMEM},
    {"thread",  EAGAIN},
    {"exec",    ENOENT}, {"exec",   EACCES}, {"exec",  ENOMEM},
    {"open",    EMFILE}, {"open",   EIO},    {"open",  ENOSPC}, {"open", EROFS},
    {"list",    EIO},
    {"read",    EIO},
    {"write",   ENOSPC}, {"write",  EIO},    {"write", EINTR},
    {"request", ECONNRESET}, {"request", EINTR},
    {"reply",   EPIPE},  {"reply",  EINTR},
    {"accept",  EMFILE}, {"accept", ECONNABORTED},
    {"pipe",    EMFILE},
    {"statfs",  EIO},
    {"stat",    EIO},
    {"access",  EIO},
    {"mkdir",   ENOSPC}, {"mkdir",  EROFS},
    {"rename",  EIO},    {"rename", EXDEV},
    {"link",    EPERM},  {"link",   ENOSPC}, {"link",  EXDEV},
    {"unlink",  EIO},    {"unlink", EROFS},
    {"syncfs",  EIO},    {"syncfs", ENOSPC},
    {"owner",   EPERM},
};
struct WhenRow {
  const char* name;
  int first, every;
  bool quick;  // in the short round too
};
constexpr WhenRow kWhens[] = {
    {"always", 1, 1, true},     {"every-2nd", 2, 2, false}, {"every-7th", 7, 7, false},
    {"1st", 1, 0, false},       {"2nd", 2, 0, false},       {"3rd", 3, 0, true},
    {"5th", 5, 0, false},       {"8th", 8, 0, false},       {"13th", 13, 0, false},
    {"21st", 21, 0, false},     {"34th", 34, 0, false},     {"55th", 55, 0, false},
    {"89th", 89, 0, false},     {"144th", 144, 0, false},   {"233rd", 233, 0, false},
};
// clang-format on

struct Trial {
  FaultPlan plan;
  std::string name;  // "fork EAGAIN always boot"
};

constexpr int kAllTypes = 0x7fff;
constexpr int kFeedbackMask = 0x7fffffff;
constexpr int kRequestLimitMs = 90000;  // one request; longer than any bounded wait
constexpr int kStuckLimitMs = 1500;     // if the fault prevents serving
constexpr const char* kOldRun = "/sdcard/zelkalog/1#01-01_00-00-00";
constexpr const char* kKeptRun = "/sdcard/zelkalog/2#01-02_00-00-00";
constexpr const char* kBuffers[] = {"main", "events", "system", "radio", "crash"};

std::vector<std::string> broken;  // failed checks of this trial, in this process

void expect(bool fine, const std::string& what) {
  if (!fine) broken.push_back(what);
}

// The reference of the trials: the same steps without a fault.
struct Reference {
  Resources held;
  Words running;
  Words changed;  // changed paths outside the daemon's trees
};

Words phone_options(const Trial& trial) {
  const FaultPlan& plan = trial.plan;
  char text[64];
  snprintf(text, sizeof text, "%s=%s %d %d %d %d", kFaultVariable, plan.call, plan.error,
           plan.first, plan.every, plan.armed);
  return quick_vendor(
      {"--daemon", FAULT_INJECTOR, "--file", std::string(HARROWMOSSD "=") + kRealDaemon, "--env",
       text, "--prop", "persist.sys.zelka.log.size=1", "--prop", "persist.sys.zklog.dir_sequence=2",
       "--prop", "persist.sys.qtrlog.enable=1", "--prop", "persist.sys.zklog.tzbsp.enable=on"});
}

// An old run larger than the quota, a smaller one, crash artefacts, and a dump to rename.
void plant(const Phone& phone) {
  constexpr off_t kAboveQuota = INT64_C(2) << 30;
  const std::string big = std::string(kOldRun) + "/main.txt";
  phone.write(big, "");
  expect_of_phone(truncate(phone.inside(big).c_str(), kAboveQuota) == 0, errno_text(big));
  phone.write(std::string(kKeptRun) + "/mobile/main.txt", "kept\n");
  phone.write("/data/anr/trace_00", "stack\n");
  phone.write("/data/tombstones/tombstone_00", "crash\n");
  phone.write("/sdcard/zelkalog/.minidump/dump", std::string(600 * 1024, 'd'));
  phone.write("/sdcard/Documents/own/letter", "of the user\n");
  phone.write("/data/local/traces/trace", "trace\n");
}

FaultControl* map_control(const Phone& phone) {
  FaultControl* control = nullptr;
  eventually([&] {
    const Fd file(open(phone.inside(kFaultControl).c_str(), O_RDWR | O_CLOEXEC));
    struct stat info;
    if (!file.ok() || fstat(file.get(), &info) != 0 || info.st_size == 0) return false;
    void* memory =
        mmap(nullptr, sizeof(FaultControl), PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), 0);
    if (memory != MAP_FAILED) control = static_cast<FaultControl*>(memory);
    return control != nullptr;
  });
  return control;
}

// One request with any result. False without a reply.
bool ask_something(const Phone& phone, int code, const std::string& arguments, int limit_ms) {
  const int64_t start = monotonic_now_ms();
  Client client(phone);
  if (client.send(request(code, 1, arguments), limit_ms)) client.reply(limit_ms);
  return monotonic_now_ms() - start < limit_ms;
}

std::string mask(int value) {
  return little_endian(static_cast<uint32_t>(value), 4);
}

// The daemon cannot serve during this fault; the system reports that, not the daemon.
bool shuts_out(const FaultPlan& plan) {
  const bool always = plan.every == 1;
  return always &&
         (strcmp(plan.call, "accept") == 0 || (plan.armed != 0 && strcmp(plan.call, "mkdir") == 0));
}

// A run from start to stop, with the events between them.
void story(const Phone& phone, const std::string& word, int limit_ms, Captured* captured) {
  expect(ask_something(phone, 2, mask(kAllTypes), limit_ms) || limit_ms == kStuckLimitMs,
         "start: no answer");
  for (const char* buffer : kBuffers)
    phone.shell("log -t trial -b " + std::string(buffer) + " '" + word + "'");
  constexpr int kCaptureMs = 1000;
  eventually([&] { return !phone.exists(kOldRun); }, kCaptureMs);
  remember_captured(phone, captured);
  expect(ask_something(phone, 6, mask(kFeedbackMask) + string16("/sdcard/report/1") + mask(0),
                       limit_ms) ||
             limit_ms == kStuckLimitMs,
         "feedback: no answer");
  // More than the socket's backlog would block without an accept.
  for (const int code : {7, 9, 10, 11, 13, 16}) {
    if (limit_ms != kStuckLimitMs) ask_something(phone, code, "", limit_ms);
  }
  remember_captured(phone, captured);
  expect(ask_something(phone, 3, "", limit_ms) || limit_ms == kStuckLimitMs, "stop: no answer");
}

// The same without a fault: everything must work.
void story_that_works(const Phone& phone) {
  constexpr int kServeMs = 60000;  // abandoned requests may come first
  expect(eventually([&] { return serves(phone, 3000); }, kServeMs), "does not serve afterwards");
  if (!broken.empty()) return;
  ask_something(phone, 3, "", kRequestLimitMs);  // ends what the fault left running
  expect(start_logging(phone, kAllTypes) == 0, "the next start fails");
  const std::string run = run_name(phone), word = "word after the fault";
  for (const char* buffer : kBuffers)
    phone.shell("log -t trial -b " + std::string(buffer) + " '" + word + "'");
  constexpr int kCycleMs = 5000;
  expect(eventually([&] { return !phone.exists(kOldRun); }, 3 * kCycleMs), "does not evict");
  expect(stop_logging(phone) == 0, "the next stop fails");
  for (const char* buffer : kBuffers) {
    const std::string file = store_path(run) + "/mobile/QZ201A-V1.02-" + buffer + ".txt";
    expect(phone.read(file).find(word) != std::string::npos, "not captured: " + file);
  }
}

void check_promises(const Phone& phone, const Captured& captured, const Reference& reference,
                    const std::map<std::string, std::string>& before) {
  // Evaluate first: the order of a call's arguments is unspecified.
  bool as_before = eventually_childless(phone);
  expect(as_before, "processes left: " + joined(running(phone)));
  Words now;
  as_before = eventually([&] { return (now = running(phone)) == reference.running; }, 5000);
  expect(as_before, "runs: " + joined(now));
  Resources held;  // the router log's rotation thread may outlive its run by 10 s
  as_before = eventually(
      [&] {
        held = resources(phone);
        return held.descriptors == reference.held.descriptors &&
               held.threads <= reference.held.threads;
      },
      5000);
  expect(as_before,
         "holds: " + joined(held.descriptors) + ", threads: " + std::to_string(held.threads));
  const Words files = lost(phone, captured);
  expect(files.empty(), "lost: " + joined(files));
  expect(phone.read(std::string(kKeptRun) + "/mobile/main.txt") == "kept\n",
         "the run within the quota is gone");
  Words changed;
  for (const std::string& path : differences(before, surroundings(phone))) {
    const Words& usual = reference.changed;
    if (std::find(usual.begin(), usual.end(), path) == usual.end()) changed.push_back(path);
  }
  expect(changed.empty(), "changed: " + joined(changed));
  for (const std::string& line : phone.init_log())
    expect(line.compare(0, 17, "ended harrowmossd") != 0, line);
}

// The first trial, without a fault, becomes the reference of the others.
void run_trial(const Trial& trial, Reference* reference, bool is_reference) {
  on_phone_failure = [](const std::string& what) { broken.push_back(what); };
  const int64_t start = monotonic_now_ms();
  Phone phone(phone_options(trial), Phone::Until::kBooted);
  FaultControl* control = phone.ok() ? map_control(phone) : nullptr;
  expect(control != nullptr, "no fault injector: " + phone.messages());
  if (control == nullptr) return;
  plant(phone);
  const auto before = surroundings(phone);
  const bool shut_out = shuts_out(trial.plan);
  if (trial.plan.armed != 0) {
    phone.wait_until_ready(shut_out ? kStuckLimitMs : 20000);
  } else {
    expect(phone.wait_until_ready() && settled(phone), "does not start");
    control->armed = 1;
  }
  Captured captured;
  story(phone, "word during the fault", shut_out ? kStuckLimitMs : kRequestLimitMs, &captured);
  control->armed = 0;
  const int32_t matched = control->matched, failed = control->failed;
  story_that_works(phone);
  if (is_reference) {
    expect(eventually_childless(phone), "processes left");
    *reference = {idle_resources(phone), running(phone), differences(before, surroundings(phone))};
  }
  if (broken.empty()) check_promises(phone, captured, *reference, before);
  printf("%-32s %6d %6d %6.1f s  %s\n", trial.name.c_str(), matched, failed,
         static_cast<double>(monotonic_now_ms() - start) / 1000,
         !broken.empty()                ? "BROKEN"
         : failed == 0 && !is_reference ? "not reached"
                                        : "kept");
  for (const std::string& what : broken) printf("    %s\n", what.c_str());
}

std::vector<Trial> trials(const std::string& filter, bool quick) {
  std::vector<Trial> found;
  const std::regex wanted(filter);
  for (const WhenRow& when : kWhens) {
    for (const FaultRow& fault : kFaults) {
      for (const int armed : {1, 0}) {
        Trial trial = {{"", fault.error, when.first, when.every, armed}, ""};
        strncat(trial.plan.call, fault.call, sizeof trial.plan.call - 1);
        trial.name = std::string(fault.call) + " " + strerrorname_np(fault.error) + " " +
                     when.name + (armed != 0 ? " boot" : " serving");
        // The short round: each call with its first error, at start-up always, later once.
        const bool first_error = &fault == kFaults || strcmp((&fault - 1)->call, fault.call) != 0;
        const bool in_short = first_error && when.quick && (when.every == 1) == (armed == 1);
        if ((!quick || in_short) && std::regex_search(trial.name, wanted)) found.push_back(trial);
      }
    }
  }
  return found;
}

// Runs `jobs` trials at a time, each in a process of its own; returns how many failed.
int run_all(const std::vector<Trial>& all, Reference* reference, int jobs) {
  int bad = 0, running_now = 0;
  const auto reap = [&] {
    int status;
    if (wait(&status) > 0) running_now--, bad += status != 0;
  };
  for (const Trial& trial : all) {
    if (running_now == jobs) reap();
    const pid_t pid = fork();
    if (pid == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      run_trial(trial, reference, false);
      fflush(stdout);
      _exit(broken.empty() ? 0 : 1);
    }
    if (pid > 0) running_now++;
  }
  while (running_now > 0) reap();
  return bad;
}

}  // namespace

int main(int argc, char** argv) {
  bool quick = false;
  std::string filter;
  for (int i = 1; i < argc; i++) {
    if (strcmp(argv[i], "--quick") == 0) {
      quick = true;
    } else {
      filter = argv[i];
    }
  }
  const std::vector<Trial> all = trials(filter, quick);
  if (all.empty()) {
    fprintf(stderr, "no trial is named so: CALL ERRNO WHEN boot|serving\n");
    return 2;
  }
  setvbuf(stdout, nullptr, _IOFBF, 1 << 16);  // keeps a trial's lines together
  printf("%-32s %6s %6s\n", "call, error, when, from", "calls", "failed");
  Reference reference;
  run_trial({{"none", 0, 1, 0, 1}, "none"}, &reference, true);
  fflush(stdout);
  if (!broken.empty()) return 1;
  constexpr int kJobs = 6;  // mostly waiting
  const int bad = run_all(all, &reference, kJobs);
  printf("%zu trials, %d broke a promise\n", all.size(), bad);
  return bad == 0 ? 0 : 1;
}
