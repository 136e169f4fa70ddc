// A bench phone, seen and handled from the host. Every test boots its own: about 10 ms.
#pragma once

#include <sys/types.h>
#include <unistd.h>

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "phone/tools/journal.h"
#include "phone/util.h"
#include "phone/wait.h"
#include "platform/linux/property_area.h"

struct RunResult {
  int status = -1;  // exit status; 128 + signal; -1: could not be run
  std::string out;
  std::string err;
};

// Runs a host program to its end, with `input` as its standard input. kSwitchMs at most.
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

// A command in the background, killed when this is destroyed.
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
  bool wait_until_ready(int limit_ms = kOwedMs) const;
  void end();
  // What the launcher and init wrote to standard error.
  std::string messages() const;

  // The host's name for a path inside; works for everything, sockets too.
  std::string inside(const std::string& path) const;

  std::string read(const std::string& path) const;  // "" when missing
  // Makes parents; mode 0644, but what is below /data/anr is 0600 of the system, as there.
  void write(const std::string& path, const std::string& text) const;
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
  // Starts a command inside and does not wait for it. Its input stays open and empty, its output is
  // thrown away.
  BackgroundCommand spawn(const std::vector<std::string>& argv) const;

  std::vector<PhoneProcess> processes() const;
  // The processes with this name (comm).
  std::vector<PhoneProcess> named(const std::string& comm) const;
  // The daemon's main process, as the phone counts; 0 when it does not run.
  pid_t daemon_pid() const;
  // What the host calls a process of the phone; 0 when there is none.
  pid_t outer_pid(pid_t pid) const;
  // Sends a signal to a process of the phone. False when there is none: init, 0 and less are none.
  bool signal(pid_t pid, int sig) const;

  // Keeps the phone's logs in the host's `directory`, see phone/boot/keep_logs.h.
  bool keep_logs(const std::string& directory) const;

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

// A program of the test's own in the place of one of the phone's: mksh's script `body`, or with
// another mode than 0755 a file that cannot be run. On the host only as long as this lives; a phone
// takes its copy when it boots.
class Program {
 public:
  explicit Program(const std::string& body, mode_t mode = 0755);
  ~Program();
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;
  // The value of the launcher's option --file.
  std::string over(const std::string& path) const { return path_ + ("=" + path); }

 private:
  char path_[32] = "/tmp/program.XXXXXX";
};

// Phones side by side, one for each set of options, each ready.
std::vector<std::unique_ptr<Phone>> boot_all(const std::vector<std::vector<std::string>>& options);

// Called before a phone ends, while all of it can still be read; null: nothing is done.
extern void (*before_phone_ends)(const Phone& phone);
