// A bench phone, seen and handled from the host. Every test boots its own: about 6 ms.
#pragma once

#include <sys/types.h>
#include <unistd.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "phone/journal.h"
#include "phone/util.h"
#include "platform/linux/property_area.h"

// Milliseconds of CLOCK_MONOTONIC.
int64_t monotonic_now_ms();

// Polls `done` every 2 ms; false after `limit_ms` of CLOCK_MONOTONIC, but not before 5 looks: a
// look at a busy machine's processes can take much of the limit. For effects that another process
// owes us.
template <typename Done>
bool eventually(Done done, int limit_ms = 30000) {
  constexpr int kStepMs = 2, kFewestLooks = 5;
  const int64_t deadline = monotonic_now_ms() + limit_ms;
  for (int looks = 1;; looks++) {
    if (done()) return true;
    if (looks >= kFewestLooks && monotonic_now_ms() >= deadline) return false;
    usleep(kStepMs * 1000);
  }
}

struct RunResult {
  int status = -1;  // exit status; 128 + signal; -1: could not be run
  std::string out;
  std::string err;
};

// Runs a host program to its end, with `input` as its standard input. 30 s at most.
RunResult run_on_host(const std::vector<std::string>& argv, const std::string& input = "");

// The launcher with these arguments, to its end.
RunResult run_phone(const std::vector<std::string>& arguments, const std::string& input = "");

struct PhoneProcess {
  pid_t pid = 0;  // as the phone counts
  pid_t ppid = 0;
  pid_t pgrp = 0;
  pid_t session = 0;
  char state = '?';
  std::string comm;
  std::vector<std::string> cmdline;
};

struct PropertySet {
  pid_t pid = 0;  // as the setter counts
  std::string key;
  std::string value;
};

class Phone {
 public:
  enum class Until {
    kBooted,  // properties and files are there; the daemon may not run yet
    kReady,   // the daemon listens; at once with --no-daemon
  };

  // `options` go to the launcher. A phone that does not come up is trouble (trouble.h) with
  // what the launcher said; ok() is false then.
  explicit Phone(const std::vector<std::string>& options = {}, Until until = Until::kReady);
  // Ends the phone and waits until its last process is gone.
  ~Phone();
  Phone(const Phone&) = delete;
  Phone& operator=(const Phone&) = delete;

  bool ok() const { return init_ > 0; }
  pid_t init_pid() const { return init_; }  // as the host counts
  bool wait_until_ready(int limit_ms = 30000) const;
  void end();
  // What the launcher and init wrote to standard error.
  std::string messages() const;

  // The host's name for a path inside; works for everything, sockets too.
  std::string inside(const std::string& path) const;

  std::string read(const std::string& path) const;                     // "" when missing
  void write(const std::string& path, const std::string& text) const;  // makes parents; mode 0644
  void append(const std::string& path, const std::string& text) const;
  bool exists(const std::string& path) const;
  std::vector<std::string> list(const std::string& directory) const;  // sorted; no "." and ".."

  void setprop(const std::string& key, const std::string& value);
  std::string getprop(const std::string& key) const;

  // Everything that was run through a shell or a stand-in, in order; without what clear_calls()
  // cut.
  std::vector<BenchCall> calls() const;
  // The calls of one program: "/system/bin/logcat", "/system/bin/sh", ...
  std::vector<BenchCall> calls_of(const std::string& program) const;
  // The command texts of every `sh -c`, in order.
  std::vector<std::string> shell_commands() const;
  void clear_calls() const;

  // Every property set since boot, in order.
  std::vector<PropertySet> properties_log() const;
  // Values that `key` was set to, in order.
  std::vector<std::string> values_of(const std::string& key) const;

  // Runs a command inside, as root with the shell's PATH. `input` becomes its standard input.
  RunResult run(const std::vector<std::string>& argv, const std::string& input = "") const;
  RunResult shell(const std::string& text) const { return run({"/system/bin/mksh", "-c", text}); }

  std::vector<PhoneProcess> processes() const;
  // The processes with this name (comm).
  std::vector<PhoneProcess> named(const std::string& comm) const;
  // The daemon's main process, as the phone counts; 0 when it does not run.
  pid_t daemon_pid() const;
  // What the host calls a process of the phone; 0 when there is none.
  pid_t outer_pid(pid_t pid) const;
  // Sends a signal to a process of the phone. False when there is none.
  bool signal(pid_t pid, int sig) const;

  // init's own log, without the times.
  std::vector<std::string> init_log() const;

 private:
  pid_t launcher_ = -1;
  pid_t init_ = -1;
  Fd input_;  // closing it ends COMMAND
  Fd launcher_pidfd_, init_pidfd_;
  std::string directory_;  // of the pid file and the messages
  std::unique_ptr<PropertyArea> properties_;
};
