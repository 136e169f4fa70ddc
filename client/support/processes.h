// Finds the daemon and its descendants in /proc.
#pragma once

#include <stdint.h>
#include <sys/types.h>

#include <string>
#include <vector>

struct Process {
  pid_t pid = 0;
  pid_t parent = 0;
  uint64_t started = 0;           // clock ticks after boot
  std::string comm;               // kernel name, 15 bytes at most
  std::vector<std::string> argv;  // empty for a zombie or a kernel thread
  std::string exe;                // "" without permission
};

// A process below the daemon and what it does.
struct Worker {
  Process who;
  std::string role;  // a logger type's name, "size monitor", "self log", ..., "" when not known
};

// Every process under `proc` ("/proc"), by pid. A process that ends meanwhile is skipped.
std::vector<Process> read_processes(const std::string& proc);

// Parses the content of /proc/PID/stat; false when it is malformed. Fills pid, parent, started
// and comm, which may itself hold blanks and brackets.
bool parse_stat(const std::string& text, Process* out);

// The daemon's main process: a child of init that has the daemon's name and runs from a file
// called harrowmossd (or was started as such, when the file may not be seen), the oldest of
// several. Null when it does not run.
const Process* find_daemon(const std::vector<Process>& all);

// Every descendant of `daemon`, parents before their children. A process that cannot be recognised
// by its own name or command has the role of its parent.
std::vector<Worker> find_workers(const std::vector<Process>& all, pid_t daemon);

// Role of the size monitor in find_workers().
inline constexpr const char* kSizeMonitorRole = "size monitor";
