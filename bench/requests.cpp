// Requests through the real socket, client and server on one CPU.
#include <cutils/properties.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>

#include "bench/daemon.h"
#include "bench/harness.h"
#include "protocol/protocol.h"
#include "selflog/self_logger.h"

namespace {

constexpr char kAndroidLog[] = "/dev/log/main";
constexpr int kMessages = 7;   // of a version request, each to both logs
constexpr int kRequests = 50;  // a block
constexpr int kRounds = 201;

off_t size_of(const char* path) {
  struct stat info = {};
  stat(path, &info);
  return info.st_size;
}

void ask_version(Client* client) {
  if (client->ask(kVersionRequest) != kProtocolVersion) fail("another protocol version");
}

// An echo server for the same frames that writes 14 lines as long as the daemon's. Frames are read
// and sent in `parts`: 2, as the daemon does for length and payload, or 1.
[[noreturn]] void serve_bare(int fd, int parts, const std::string& android_line,
                             const std::string& self_line) {
  const int android_log =
      open("/data/android.log", O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  const int self_log = open("/data/self.log", O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  const int32_t reply[] = {16, kVersionRequest, 0, 0, kProtocolVersion};
  const size_t request_cut = parts == 2 ? sizeof(uint16_t) : 0;
  const size_t reply_cut = parts == 2 ? sizeof(reply[0]) : 0;
  char request[kVersionRequestBytes];
  for (;;) {
    if (parts == 2 && read(fd, request, request_cut) <= 0) break;
    if (read(fd, request + request_cut, sizeof(request) - request_cut) <= 0) break;
    for (int i = 0; i < kMessages; i++) {
      (void)!write(android_log, android_line.data(), android_line.size());
      (void)!write(self_log, self_line.data(), self_line.size());
    }
    if (parts == 2) (void)!write(fd, reply, reply_cut);
    (void)!write(fd, reinterpret_cast<const char*>(reply) + reply_cut, sizeof(reply) - reply_cut);
  }
  _exit(0);
}

// CPU time of client and server for a block of requests on their one CPU.
int64_t time_block(pid_t server, Client* client) {
  const int64_t start = cpu_ns(server);
  const int64_t own = cpu_time_of([client] {
    for (int i = 0; i < kRequests; i++) ask_version(client);
  });
  return own + cpu_ns(server) - start;
}

void compare(Client* client) {
  const off_t android_before = size_of(kAndroidLog);
  const off_t self_before = size_of(kSelfLogFile);
  ask_version(client);
  const auto line = [](off_t bytes) {
    return std::string(static_cast<size_t>(bytes / kMessages), 'x');
  };
  const std::string android_line = line(size_of(kAndroidLog) - android_before);
  const std::string self_line = line(size_of(kSelfLogFile) - self_before);
  int ends[2][2];
  pid_t bare[2];
  for (int i = 0; i < 2; i++) {
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends[i]) != 0) fail("no socket pair");
    bare[i] = spawn([&] { serve_bare(ends[i][1], 2 - i, android_line, self_line); });
  }
  Client in_two_parts(ends[0][0]);
  Client whole(ends[1][0]);
  std::vector<double> wall;
  const auto ask_daemon = [&] {
    const int64_t start = wall_ns();
    const int64_t cpu = time_block(daemon_pid(), client);
    wall.push_back(static_cast<double>(wall_ns() - start));
    return cpu;
  };
  const BlockTimes times =
      alternate(kRounds, {{"daemon", ask_daemon},
                          {"bare", [&] { return time_block(bare[0], &in_two_parts); }},
                          {"whole frames", [&] { return time_block(bare[1], &whole); }}});
  for (const pid_t pid : bare) end(pid);
  report_ratio("request.ratio", times[0], times[1]);
  report_ratio("request.whole_frames", times[0], times[2]);
  report("request.cpu_us", median(times[0]) / kRequests / 1e3);
  report("request.wall_us", median(wall) / kRequests / 1e3);
}

void count(Client* client) {
  constexpr int kCounted = 50;
  constexpr int kReads = 2;  // of a request: its length, and the rest
  std::atomic<bool> counted{false};
  std::thread sender([&] {
    while (!counted) ask_version(client);
  });
  CallCounts calls = count_calls(daemon_pid(), SYS_read, kReads * kCounted);
  counted = true;
  sender.join();
  for (const long call : {SYS_getpid, SYS_gettid}) calls.erase(call);
  report("request.calls", static_cast<double>(total_calls(calls)) / kCounted);
}

}  // namespace

void bench_request() {
  settle();
  pin();
  pin(daemon_pid());
  Client client;
  compare(&client);
  count(&client);
}

// In a phone whose daemon has as many idle workers as the property says. One point per run:
// bench/run.py boots a phone for each number.
void bench_request_workers() {
  char workers[PROPERTY_VALUE_MAX];
  property_get("bench.workers", workers, "0");
  pin();
  pin(daemon_pid());
  Client client;
  std::vector<double> wall;
  for (int i = 0; i < 2000; i++)
    wall.push_back(static_cast<double>(wall_time_of([&client] { ask_version(&client); })) / 1e3);
  report_point("request-latency", atoi(workers), {median(wall)});
}
