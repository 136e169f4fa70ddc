// A bench phone, driven from the host. Every test boots its own: about 10 ms.
#pragma once

#include <sys/types.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "phone/tools/journal.h"
#include "phone/util.h"
#include "phone/wait.h"
#include "platform/linux/property_area.h"

struct RunResult {
  int status = -1;  // exit status; 128 + signal; -1: not run
  std::string out;
  std::string err;
};

// Runs a host program to its end, kSwitchMs at most. `input`: its standard input.
RunResult run_on_host(const std::vector<std::string>& argv, const std::string& input = "");

// Runs the launcher with these arguments to its end.
RunResult run_phone(const std::vector<std::string>& arguments, const std::string& input = "");

struct PhoneProcess {
  pid_t pid = 0;  // in the phone's pid namespace
  pid_t ppid = 0;
  pid_t pgrp = 0;
  pid_t session = 0;
  char state = '?';
  std::string comm;
  std::vector<std::string> cmdline;
};

struct PropertySet {
  pid_t pid = 0;  // in the setter's pid namespace
  std::string key;
  std::string value;
};

// A background command; the destructor kills it.
class BackgroundCommand {
 public:
  BackgroundCommand(pid_t pid, Fd input) : pid_(pid), input_(std::move(input)) {}
  BackgroundCommand(BackgroundCommand&& other) noexcept
      : pid_(std::exchange(other.pid_, -1)), input_(std::move(other.input_)) {}
  ~BackgroundCommand();

 private:
  pid_t pid_;  // of the process that waits for the command
  Fd input_;
};

class Phone {
 public:
  enum class Until {
    kBooted,  // properties and files exist; the daemon may not run yet
    kReady,   // the daemon listens; at once with --no-daemon
  };

  // `options` go to the launcher. If the phone does not come up, reports a failure (failure.h) with
  // the launcher's messages; ok() is false.
  explicit Phone(const std::vector<std::string>& options = {}, Until until = Until::kReady);
  // Ends the phone and waits for its last process.
  ~Phone();
  Phone(const Phone&) = delete;
  Phone& operator=(const Phone&) = delete;

  bool ok() const { return init_ > 0; }
  pid_t init_pid() const { return init_; }  // in the host's pid namespace
  bool wait_until_ready(int limit_ms = kOwedMs) const;
  void end();
  // Standard error of the launcher and init.
  std::string messages() const;

  // The host's path of a path inside; works for everything, sockets too.
  std::string inside(const std::string& path) const;

  std::string read(const std::string& path) const;  // "" when missing
  // Creates parents; mode 0644, below /data/anr 0600 of the user system, as on a phone.
  void write(const std::string& path, const std::string& text) const;
  void append(const std::string& path, const std::string& text) const;
  bool exists(const std::string& path) const;
  std::vector<std::string> list(const std::string& directory) const;  // sorted; no "." and ".."

  void setprop(const std::string& key, const std::string& value);
  std::string getprop(const std::string& key) const;

  // All calls of shells and stand-ins, in order, since clear_calls().
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
  // Starts a command inside and does not wait for it. Its input stays open and empty; its output is
  // discarded.
  BackgroundCommand spawn(const std::vector<std::string>& argv) const;

  std::vector<PhoneProcess> processes() const;
  // The processes with this name (comm).
  std::vector<PhoneProcess> named(const std::string& comm) const;
  // Pid of the daemon's main process in the phone; 0 when it does not run.
  pid_t daemon_pid() const;
  // The host's pid of a process of the phone; 0 when there is none.
  pid_t outer_pid(pid_t pid) const;
  // Sends a signal to a process of the phone. False without such a process, and for pids up to 1.
  bool signal(pid_t pid, int sig) const;

  // Saves the phone's logs in the host's `directory`, see phone/boot/keep_logs.h.
  bool keep_logs(const std::string& directory) const;

  // init's own log, without the times.
  std::vector<std::string> init_log() const;

 private:
  pid_t launcher_ = -1;
  pid_t init_ = -1;
  Fd input_;  // COMMAND ends when this closes
  Fd launcher_pidfd_, init_pidfd_;
  std::string directory_;  // with the pid file and the messages
  std::unique_ptr<PropertyArea> properties_;
};

// A replacement for a program of the phone: the mksh script `body`, or with a mode without x a file
// that cannot be executed. Must live until the phone has booted, which copies it.
class Program {
 public:
  explicit Program(const std::string& body, mode_t mode = 0755);
  ~Program();
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;
  // The value for the launcher's --file.
  std::string over(const std::string& path) const { return path_ + ("=" + path); }

 private:
  char path_[32] = "/tmp/program.XXXXXX";
};

// Boots a phone for each set of options, in parallel; returns when all are ready.
std::vector<std::unique_ptr<Phone>> boot_all(const std::vector<std::vector<std::string>>& options);

// Called before a phone ends, while it can still be read; may be null.
extern void (*before_phone_ends)(const Phone& phone);
