// What each logger type costs a phone while it captures: CPU time, wake-ups, bytes and files, under
// a stated load; and the cost of a check by the size monitor. Prints the tables of docs/cost.md.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <thread>

#include "phone/host/daemon.h"
#include "phone/host/failure.h"
#include "protocol/protocol.h"

namespace {

namespace fs = std::filesystem;

// 100 lines of 100 bytes a second, like a phone in use; and a contact that moves all the time, like
// a touch controller: 120 packets a second of six events.
constexpr char kLogLoad[] =
    "t=$(printf '%085d' 0); while :; do for b in main system events radio; do "
    "log -t load -b $b -n 25 $t; done; sleep 1; done";
constexpr char kTouchLoad[] =
    "finger <<END\nrate 720\nswipe event0 100 2000 300 1000 1000000\nEND\n";
constexpr int kWarmUpSeconds = 6;  // a round of the size monitor, and the forks of the start
constexpr int kMonitorRounds = 4;
constexpr int kMonitorSeconds = 5;
constexpr int kFilesInARun = 100;

// The resources that a process has used.
struct Usage {
  double cpu_ms = 0;
  int64_t wakes = 0;  // voluntary context switches
};

Usage usage_of(const Phone& phone, pid_t pid) {
  Usage usage;
  const std::string tasks = phone.inside("/proc/" + std::to_string(pid) + "/task");
  std::error_code error;
  for (const auto& task : fs::directory_iterator(tasks, error)) {
    usage.cpu_ms += atoll(read_file(task.path() / "schedstat").c_str()) / 1e6;
    usage.wakes += number_behind(read_file(task.path() / "status"), "\nvoluntary_ctxt_switches:");
  }
  return usage;
}

bool is_daemon(const Phone& phone, pid_t pid) {
  std::error_code gone;
  const std::string exe =
      fs::read_symlink(phone.inside("/proc/" + std::to_string(pid) + "/exe"), gone);
  return fs::path(exe).filename().string().compare(0, 11, "harrowmossd") == 0;  // may be deleted
}

// Usage by pid: the daemon's processes, and the tools that it started.
struct Sample {
  std::map<pid_t, Usage> daemon, tools;
};

Sample sample_of(const Phone& phone) {
  Sample sample;
  const auto add = [&](pid_t pid) {
    (is_daemon(phone, pid) ? sample.daemon : sample.tools)[pid] = usage_of(phone, pid);
  };
  add(phone.daemon_pid());
  for (const PhoneProcess& process : children_of_daemon(phone)) add(process.pid);
  return sample;
}

// The difference for processes in both samples.
Usage used(const std::map<pid_t, Usage>& before, const std::map<pid_t, Usage>& after) {
  Usage sum;
  for (const auto& [pid, usage] : after) {
    const auto earlier = before.find(pid);
    if (earlier == before.end()) continue;
    sum.cpu_ms += usage.cpu_ms - earlier->second.cpu_ms;
    sum.wakes += usage.wakes - earlier->second.wakes;
  }
  return sum;
}

struct Size {
  int64_t bytes = 0;
  int files = 0;
};

// The daemon's files outside of finished runs, in blocks, because a file may have holes.
Size size_of_working_area(const Phone& phone) {
  Size size;
  const std::string root = "/data/misc/zelkalog";
  for (const std::string& path : tree(phone, root)) {
    struct stat info;
    if (path.back() == '/' || lstat(phone.inside(root + "/" + path).c_str(), &info) != 0) continue;
    size.bytes += info.st_size;
    size.files++;
  }
  return size;
}

// Boots a phone under load, starts `mask` (0: nothing) and prints its cost over `seconds`.
void measure(const char* name, int32_t mask, int seconds) {
  Phone phone(quick_vendor({"--input", "--data-size", "2G"}));
  if (!settled(phone)) on_phone_failure("the daemon does not become idle");
  phone.shell("finger plug event0 zelka_goodix_ts");
  if (mask != 0) start_logging(phone, mask);
  std::thread load([&phone] { phone.shell(kLogLoad); });
  std::thread touch([&phone] { phone.shell(kTouchLoad); });
  sleep(kWarmUpSeconds);
  const Sample before = sample_of(phone);
  const Size size_before = size_of_working_area(phone);
  sleep(static_cast<unsigned>(seconds));
  const Sample after = sample_of(phone);
  const Size size = size_of_working_area(phone);
  const Usage daemon = used(before.daemon, after.daemon), tools = used(before.tools, after.tools);
  const double mb_an_hour = (size.bytes - size_before.bytes) / 1e6 * 3600 / seconds;
  printf("| %s | %zu | %.2f | %.1f | %zu | %.1f | %.1f | %d |\n", name, after.daemon.size(),
         daemon.cpu_ms / seconds, static_cast<double>(daemon.wakes) / seconds, after.tools.size(),
         tools.cpu_ms / seconds, mb_an_hour, size.files);
  fflush(stdout);
  phone.end();  // ends the loads
  load.join();
  touch.join();
}

// Puts `count` files into the store and prints the cost of the monitor's checks.
void measure_monitor(int count) {
  Phone phone(quick_vendor());
  if (!settled(phone)) on_phone_failure("the daemon does not become idle");
  for (int i = 0; i < count; i++) {
    const int run = i / kFilesInARun;
    if (i % kFilesInARun == 0) {
      const std::string directory = store_path(std::to_string(run) + "#01-01_00-00-00");
      fs::create_directories(phone.inside(directory));
    }
    phone.write(store_path(std::to_string(run) + "#01-01_00-00-00/") + std::to_string(i), "x");
  }
  start_logging(phone, 0x4000);
  const pid_t monitor = running_monitor(phone).pid;
  sleep(kMonitorSeconds + 1);
  const Usage before = usage_of(phone, monitor);
  sleep(kMonitorSeconds * kMonitorRounds);
  const Usage after = usage_of(phone, monitor);
  printf("| %d | %.2f | %.2f |\n", count, (after.cpu_ms - before.cpu_ms) / kMonitorRounds,
         static_cast<double>(after.wakes - before.wakes) / kMonitorRounds);
  fflush(stdout);
}

}  // namespace

// usage: cost SECONDS
int main(int argc, char** argv) {
  const int seconds = argc > 1 ? atoi(argv[1]) : 20;
  if (seconds <= 0) {
    fprintf(stderr, "usage: cost SECONDS\n");
    return 2;
  }
  printf(
      "| Type | Processes | CPU, ms/s | Wake-ups/s | Tools | Their CPU, ms/s | MB/h | Files |\n");
  printf("|---|---|---|---|---|---|---|---|\n");
  measure("(off)", 0, seconds);
  int32_t all = 0;
  for (const auto& type : kLoggerTypeNames) {
    measure(type.name, type.mask, seconds);
    all |= type.mask;
  }
  measure("all", all, seconds);
  printf("\n| Files | CPU per measurement, ms | Wake-ups per measurement |\n|---|---|---|\n");
  for (const int count : {0, 10000, 100000}) measure_monitor(count);
  return 0;
}
