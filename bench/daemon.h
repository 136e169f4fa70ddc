// The real daemon of the phone, for the rows that drive it through its socket.
#pragma once

#include <stdint.h>
#include <sys/types.h>

#include <string>
#include <vector>

// The main process, as init knows it.
pid_t daemon_pid();

// Waits until the daemon has nothing left to do: the kernel-log worker of its start-up has ended.
void settle();

// All that descends from the process `pid`, in no order.
std::vector<pid_t> descendants_of(pid_t pid);
// Whether `pid` runs the same program as the main process: a forked worker, not a tool.
bool is_forked_daemon(pid_t pid);

// A connected client. A failure ends the benchmark.
class Client {
 public:
  Client();
  explicit Client(int fd) : fd_(fd) {}  // to a peer that answers alike; owns `fd`
  ~Client();
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;
  // Sends one request (with an int32 argument where `argument` is not null) and takes the reply.
  // Returns the int32 behind the echoed code and serial, -1 when there is none.
  int32_t ask(int32_t code, const int32_t* argument = nullptr);

 private:
  int fd_;
};

constexpr int32_t kVersionRequest = 1;
constexpr int32_t kStartRequest = 2;
constexpr int32_t kStopRequest = 3;
constexpr size_t kVersionRequestBytes = 14;  // length, code and serial

// What the daemon has written to the Android log: time in nanoseconds, and the message.
struct LogEntry {
  int64_t ns;
  std::string message;
};
std::vector<LogEntry> daemon_log();
