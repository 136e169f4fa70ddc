// The idle cost of the running system, and how fast it stops.
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <numeric>

#include "bench/daemon.h"
#include "bench/harness.h"
#include "phone/wait.h"
#include "protocol/protocol.h"

namespace fs = std::filesystem;

namespace {

constexpr int kIdleWorkers = 12;
constexpr int kIdleSeconds = 20;   // whole periods of every timer of the daemon
constexpr int kSettleSeconds = 2;  // until every worker of a start sits in its wait
constexpr char kMksh[] = "/system/bin/mksh";
constexpr char kLoops[] =
    "i=0; while [ $i -lt 12 ]; do (while :; do sleep 5; done) & i=$((i+1)); done; wait";

std::string smaps_of(pid_t pid) {
  return read_file("/proc/" + std::to_string(pid) + "/smaps_rollup");
}

double kib_of(pid_t pid, const char* key) {
  return static_cast<double>(number_behind(smaps_of(pid), key));
}

double pss_of(const std::vector<pid_t>& pids) {
  return std::accumulate(pids.begin(), pids.end(), 0.0,
                         [](double sum, pid_t pid) { return sum + kib_of(pid, "\nPss:"); });
}

int32_t all_types() {
  int32_t mask = 0;
  for (const NamedBit& type : kLoggerTypeNames) mask |= type.mask;
  return mask;
}

void start_logging(Client* client, int32_t mask) {
  if (client->ask(kStartRequest, &mask) < 0) fail("debug logging does not start");
}

// Voluntary context switches of the threads of `pid`: their wake-ups.
int64_t wakeups_of(pid_t pid) {
  int64_t total = 0;
  for (const auto& task : fs::directory_iterator("/proc/" + std::to_string(pid) + "/task"))
    total += number_behind(read_file(task.path() / "status"), "\nvoluntary_ctxt_switches:");
  return total;
}

void pass_seconds(int seconds) {
  timespec until = {};
  clock_gettime(CLOCK_MONOTONIC, &until);
  until.tv_sec += seconds;
  clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr);
}

pid_t size_monitor() {
  for (const pid_t pid : descendants_of(daemon_pid())) {
    if (read_file("/proc/" + std::to_string(pid) + "/comm") == "harrowmossd-lsm\n") return pid;
  }
  fail("no size monitor");
}

struct StopTimes {
  double ms;    // from the first signal to a worker to the last worker's end
  int workers;  // and logcats
};

// Starts and stops debug logging; returns the times of the daemon's log.
StopTimes start_and_stop(Client* client, int32_t mask) {
  start_logging(client, mask);
  pass_seconds(kSettleSeconds);
  client->ask(kStopRequest);
  StopTimes times = {};
  int64_t start = 0;
  for (const LogEntry& entry : daemon_log()) {
    const auto has = [&entry](const char* text) {
      return entry.message.find(text) != std::string::npos;
    };
    if (has("kill debug group start")) {
      start = entry.ns;
      times.workers = 0;
    }
    if (has("wait s_debug_group begin") || has("wait s_debug_vesk_group begin")) times.workers++;
    if (has("kill vesk group end")) times.ms = static_cast<double>(entry.ns - start) / 1e6;
  }
  if (times.ms <= 0) fail("a stop without an end");
  return times;
}

}  // namespace

// In a phone with idle_daemon and 12 workers.
void bench_memory() {
  std::vector<pid_t> daemons = descendants_of(daemon_pid());
  if (daemons.size() != kIdleWorkers) fail("not 12 idle workers");
  daemons.push_back(daemon_pid());
  const pid_t script = spawn([] { execl(kMksh, kMksh, "-c", kLoops, nullptr); });
  // Every loop is a shell and its sleep.
  await("12 loops", [&] { return descendants_of(script).size() == 2 * kIdleWorkers; });
  pass_seconds(kSettleSeconds);
  std::vector<pid_t> shells = {script};
  std::vector<pid_t> all = shells;
  for (const pid_t pid : descendants_of(script)) {
    all.push_back(pid);
    if (read_file("/proc/" + std::to_string(pid) + "/comm") == "mksh\n") shells.push_back(pid);
  }
  if (shells.size() != 1 + kIdleWorkers) fail("not 12 loops");
  const double daemon_kib = pss_of(daemons);
  report("memory.pss", daemon_kib);
  report("memory.ratio", daemon_kib / pss_of(all));
  report("memory.shells", daemon_kib / pss_of(shells));
  for (const pid_t pid : all) signal_one(pid, SIGKILL);
}

// In a phone with the real daemon: all types are on.
void bench_workers() {
  Client client;
  start_logging(&client, all_types());
  pass_seconds(kSettleSeconds);
  double dirty = 0;
  int workers = 0;
  for (const pid_t pid : descendants_of(daemon_pid())) {
    if (!is_forked_daemon(pid)) continue;
    workers++;
    dirty = std::max(dirty, kib_of(pid, "\nPrivate_Dirty:"));
  }
  if (workers < 3) fail("no workers");
  report("memory.worker_dirty", dirty);
  report("memory.main_dirty", kib_of(daemon_pid(), "\nPrivate_Dirty:"));
}

void bench_idle() {
  settle();
  Client client;
  start_logging(&client, 0x1);  // mobile: only logcats, the daemon and its monitor
  pass_seconds(kSettleSeconds);
  const pid_t monitor = size_monitor();
  const int64_t main_before = wakeups_of(daemon_pid());
  const int64_t monitor_before = wakeups_of(monitor);
  pass_seconds(kIdleSeconds);
  report("idle.main", static_cast<double>(wakeups_of(daemon_pid()) - main_before));
  report("idle.monitor", static_cast<double>(wakeups_of(monitor) - monitor_before));
}

void bench_stop() {
  Client client;
  std::vector<double> per_worker;
  int workers = 0;
  for (int i = 0; i < 5; i++) {
    const StopTimes times = start_and_stop(&client, all_types());
    workers = times.workers;
    per_worker.push_back(times.ms / times.workers);
  }
  report("stop.workers", workers);
  report_median("stop.worker_ms", per_worker);
}

// In a phone whose main logcat ignores SIGTERM.
void bench_stop_stubborn() {
  Client client;
  report("stop.stubborn_s", start_and_stop(&client, 0x1).ms / 1e3);
}
