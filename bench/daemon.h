// The phone's real daemon, for rows that use its socket.
#pragma once

#include <stdint.h>
#include <sys/types.h>

#include <string>
#include <vector>

// Pid of the main process, from init's property.
pid_t daemon_pid();

// Waits until the daemon is idle: the kernel-log worker of its start-up has ended.
void settle();

// All descendants of the process `pid`, unordered.
std::vector<pid_t> descendants_of(pid_t pid);
// True when `pid` runs the main process's program: a forked worker, not a tool.
bool is_forked_daemon(pid_t pid);

// A connected client. Failures end the benchmark.
class Client {
 public:
  Client();
  explicit Client(int fd) : fd_(fd) {}  // takes `fd`, connected to a peer with the same protocol
  ~Client();
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;
  // Sends one request (with an int32 argument unless `argument` is null) and reads the reply.
  // Returns the int32 after the echoed code and serial, -1 without one.
  int32_t ask(int32_t code, const int32_t* argument = nullptr);

 private:
  int fd_;
};

constexpr int32_t kVersionRequest = 1;
constexpr int32_t kStartRequest = 2;
constexpr int32_t kStopRequest = 3;
constexpr size_t kVersionRequestBytes = 14;  // length, code and serial

// The daemon's Android log: time in nanoseconds, and message.
struct LogEntry {
  int64_t ns;
  std::string message;
};
std::vector<LogEntry> daemon_log();
