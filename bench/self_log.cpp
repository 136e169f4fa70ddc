// A line of the self log, against one bare write of the same bytes, spdlog flushing every line, and
// syslog().
#include <cutils/properties.h>
#include <fcntl.h>
#include <sched.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <atomic>
#include <string>

#include "bench/harness.h"
#include "selflog/self_logger.h"

extern "C" void* __libc_malloc(size_t size);

namespace {

constexpr char kFloorFile[] = "/data/floor.log";
constexpr char kSpdlogFile[] = "/data/spdlog.log";
constexpr char kSyslogFile[] = "/data/syslog.log";
constexpr char kSyslogSocket[] = "/dev/log";  // glibc's

constexpr int kLines = 400;  // a block; all rounds stay below the self log's rotation
constexpr int kRounds = 201;

std::atomic<int64_t> s_allocations{0};

constexpr char kFormat[] = "%s|%s|%d:: %s";  // log_message()'s
constexpr char kText[] = "execute: request = 1, serial = 4711.";

void log_line() {
  loggersystem::logger(kFormat, "harrowmoss", "execute", 104, kText);
}

// The text of one such line.
std::string line_text() {
  const std::string text = read_file(kSelfLogFile);
  const size_t end = text.find('\n');
  if (end == std::string::npos) fail("no self log");
  return text.substr(0, end + 1);
}

// A minimal syslog daemon: appends every message to a file. /dev/log is a directory in the phone,
// so this process gets a /dev of its own.
void start_syslog() {
  if (unshare(CLONE_NEWNS) != 0 ||
      mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      mount("none", "/dev", "tmpfs", 0, nullptr) != 0)
    fail("no /dev for syslog");
  const int listener = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  snprintf(address.sun_path, sizeof(address.sun_path), "%s", kSyslogSocket);
  if (bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0)
    fail("no socket for syslog");
  spawn([listener] {
    const int file = open(kSyslogFile, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    char message[2048];
    for (ssize_t size; (size = recv(listener, message, sizeof(message), 0)) > 0;)
      (void)!write(file, message, static_cast<size_t>(size));
  });
  close(listener);
  openlog("harrowmossd", LOG_PID | LOG_NDELAY, LOG_DAEMON);
}

// A child that only runs `body`, with a call of getppid() before each but the first run, which does
// one-time work.
pid_t repeat_marked(const std::function<void()>& body) {
  return spawn([&body] {
    for (body();;) {
      syscall(SYS_getppid);
      body();
    }
  });
}

void count(const std::function<void()>& bare_write) {
  constexpr int kPeriods = 200;
  const pid_t logging = repeat_marked(log_line);
  const int64_t calls = total_calls(count_calls(logging, SYS_getppid, kPeriods)) - kPeriods;
  report("self_log.calls", static_cast<double>(calls) / kPeriods);
  const pid_t writing = repeat_marked(bare_write);
  const int64_t bare = count_instructions(writing, SYS_getppid);
  report("self_log.instructions",
         static_cast<double>(count_instructions(logging, SYS_getppid) - bare));
  end(logging);
  end(writing);
  const int64_t before = s_allocations;
  for (int i = 0; i < kPeriods; i++) log_line();
  report("self_log.allocations", static_cast<double>(s_allocations - before));
}

std::function<int64_t()> block_of(const std::function<void()>& line) {
  return [line] {
    return cpu_time_of([&line] {
      for (int i = 0; i < kLines; i++) line();
    });
  };
}

}  // namespace

// Counts every allocation of this program.
void* malloc(size_t size) {
  s_allocations.fetch_add(1, std::memory_order_relaxed);
  return __libc_malloc(size);
}

void bench_self_log() {
  property_set("persist.sys.logger.enable", "on");
  log_line();
  const std::string text = line_text();
  const int file = open(kFloorFile, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  const auto bare_write = [&] { (void)!write(file, text.data(), text.size()); };
  const auto logger = spdlog::basic_logger_mt("bench", kSpdlogFile);
  logger->flush_on(spdlog::level::trace);
  start_syslog();  // not pinned, like a real syslog daemon
  pin();
  count(bare_write);
  const BlockTimes times = alternate(
      kRounds,
      {{"self log", block_of(log_line)},
       {"bare write", block_of(bare_write)},
       {"spdlog",
        block_of([&] { logger->info("{}|{}|{}:: {}", "harrowmoss", "execute", 104, kText); })},
       {"syslog",
        block_of([] { syslog(LOG_INFO, kFormat, "harrowmoss", "execute", 104, kText); })}});
  report_ratio("self_log.ratio", times[0], times[1]);
  report_ratio("self_log.spdlog", times[0], times[2]);
  report_ratio("self_log.syslog", times[0], times[3]);
  report("self_log.line_us", median(times[0]) / kLines / 1e3);
}
