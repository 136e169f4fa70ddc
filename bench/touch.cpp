// Touch event to disk: the recorder against a loop of its mandatory system calls.
#include <fcntl.h>
#include <linux/input.h>
#include <poll.h>
#include <stdio.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

#include <string>
#include <thread>

#include "bench/harness.h"
#include "input/touch_recorder.h"
#include "phone/input/control.h"

namespace {

constexpr char kDir[] = "/data/touch";
constexpr char kFloorFile[] = "/data/touch/floor.txt";
constexpr char kNode[] = "event0";

// Whole events within PIPE_BUF, as the supervisor writes them.
constexpr uint32_t kChunk = 170;
constexpr uint32_t kBlock = 6 * kChunk;  // fits into a pipe, and into one request
static_assert(kBlock <= kMaxEventsPerRequest, "one request a block");
constexpr int kRounds = 201;

// The connection to the phone's input supervisor.
class InputClient {
 public:
  InputClient() : fd_(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0)) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof(address.sun_path), "%s", kInputSocket);
    if (connect(fd_, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0)
      fail("no input supervisor: the phone must be booted with --input");
  }
  ~InputClient() { close(fd_); }
  void plug(const char* name) {
    snprintf(message_.request.name, sizeof(message_.request.name), "%s", name);
    ask(InputOp::kPlug, 0);
  }
  // Sends the coordinates of a moving contact.
  void move(uint32_t count) {
    for (uint32_t i = 0; i < count; i++)
      message_.events[i] = {EV_ABS, ABS_MT_POSITION_X, static_cast<int32_t>(i)};
    ask(InputOp::kSend, count);
  }
  // The number of readers of the node.
  int64_t readers() {
    ask(InputOp::kList, 0);
    return number_behind(reply_.text, std::string(kNode) + " ");
  }

 private:
  void ask(InputOp op, uint32_t count) {
    message_.request.op = op;
    message_.request.count = count;
    snprintf(message_.request.node, sizeof(message_.request.node), "%s", kNode);
    reply_ = {};
    const size_t size = sizeof(InputRequest) + count * sizeof(InputEvent);
    if (send(fd_, &message_, size, MSG_NOSIGNAL) < 0 || recv(fd_, &reply_, sizeof(reply_), 0) < 4 ||
        reply_.result != 0)
      fail("the input supervisor refuses");
  }

  struct {
    InputRequest request;
    InputEvent events[kMaxEventsPerRequest];
  } message_ = {};
  InputReply reply_ = {};
  int fd_;
};

pid_t start_recorder() {
  return spawn([] {
    char dir[256];
    snprintf(dir, sizeof(dir), "%s", kDir);
    start_tp_log();
    gettouchlog(dir);
  });
}

// poll, read and four writes per line, with the same poll set and file.
[[noreturn]] void bare_loop(int events) {
  const std::string parts[] = {"2024-03-09 07:05:02:41307  ", "          ",
                               "EV_ABS       ABS_MT_POSITION_X    539            ", "\n"};
  const int file = open(kFloorFile, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  pollfd polled[] = {{inotify_init1(IN_CLOEXEC), POLLIN, 0}, {events, POLLIN, 0}};
  inotify_add_watch(polled[0].fd, kInputDirectory, IN_CREATE | IN_DELETE);
  for (;;) {
    input_event event;
    if (poll(polled, 2, -1) < 1 || read(events, &event, sizeof(event)) != sizeof(event)) _exit(1);
    for (const std::string& part : parts) (void)!write(file, part.data(), part.size());
  }
}

// Write calls of a process, as counted by the kernel: four per event.
int64_t writes_of(pid_t pid) {
  return number_behind(read_file("/proc/" + std::to_string(pid) + "/io"), "syscw: ");
}

void await_writes(pid_t pid, int64_t count) {
  await("events to be written", [=] { return writes_of(pid) >= count; });
}

// CPU time that `pid` needs for a block of events that `feed` sends.
int64_t time_block(pid_t pid, const std::function<void()>& feed) {
  const int64_t before = writes_of(pid);
  const int64_t start = cpu_ns(pid);
  feed();
  await_writes(pid, before + 4 * kBlock);
  return cpu_ns(pid) - start;
}

void pin_supervisor() {
  for (pid_t pid = 1; pid < 100; pid++) {
    if (read_file("/proc/" + std::to_string(pid) + "/comm") == "input-devices\n") return pin(pid);
  }
  fail("no input supervisor");
}

void compare(InputClient* input, pid_t recorder) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) fail("no pipe");
  const pid_t floor = spawn([&ends] { bare_loop(ends[0]); });
  const std::string chunk(kChunk * sizeof(input_event), '\0');
  const auto feed_floor = [&] {
    for (uint32_t sent = 0; sent < kBlock; sent += kChunk)
      (void)!write(ends[1], chunk.data(), chunk.size());
  };
  const BlockTimes times = alternate(
      kRounds, {{"recorder", [=] { return time_block(recorder, [=] { input->move(kBlock); }); }},
                {"bare", [=] { return time_block(floor, feed_floor); }}});
  report_ratio("touch.ratio", times[0], times[1]);
  report("touch.event_us", median(times[0]) / kBlock / 1e3);
  report("touch.bare_us", median(times[1]) / kBlock / 1e3);
  end(floor);
}

void count(InputClient* input, pid_t recorder) {
  constexpr int kEvents = 400;
  std::thread sender([input] { input->move(kEvents + 10); });
  const CallCounts calls = count_calls(recorder, SYS_read, kEvents);
  sender.join();
  report("touch.calls", static_cast<double>(total_calls(calls)) / kEvents);
}

// CPU of the recorder in percent, at rates beyond those of many contacts on a fast panel.
void plot_rates(InputClient* input, pid_t recorder) {
  constexpr int64_t kTickNs = 1000000;
  constexpr int kTicks = 400;
  for (const uint32_t rate : {1000u, 2000u, 5000u, 10000u, 20000u, 50000u, 100000u, 200000u}) {
    const int64_t before = writes_of(recorder);
    const int64_t cpu = cpu_ns(recorder);
    const int64_t start = wall_ns();
    for (int tick = 0; tick < kTicks; tick++) {
      const int64_t pause = start + tick * kTickNs - wall_ns();
      const timespec length = {0, pause};
      if (pause > 0) nanosleep(&length, nullptr);
      input->move(rate / 1000);
    }
    await_writes(recorder, before + 4 * static_cast<int64_t>(rate) / 1000 * kTicks);
    const double seconds = static_cast<double>(wall_ns() - start) / 1e9;
    report_point("touch-rate", rate / 1000 * kTicks / seconds,
                 {static_cast<double>(cpu_ns(recorder) - cpu) / 1e7 / seconds});
  }
}

}  // namespace

void bench_touch() {
  if (mkdir(kDir, 0777) != 0) fail("no /data");
  pin();
  pin_supervisor();
  InputClient input;
  input.plug("front_touch");
  const pid_t recorder = start_recorder();
  await("the recorder", [&] { return input.readers() == 1; });
  input.move(1);
  await_writes(recorder, 4);
  compare(&input, recorder);
  count(&input, recorder);
  plot_rates(&input, recorder);
  end(recorder);
}
