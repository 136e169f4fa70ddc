// The log size monitor: a forked process that keeps the store under its quota and rescues a full
// "/data". checkLogSize() runs in the main process, the rest in the monitor, on its own copies of
// the globals. The two talk only through SIGUSR1 and properties.
#pragma once

#include <stdint.h>

#include <atomic>
#include <string>

// Main: a monitor is believed to run; monitor: go on looping. A monitor that ended by itself leaves
// the main process's copy true until logging is stopped once.
extern std::atomic<bool> s_logsize_monitor;

// Main: the monitor; monitor: itself; -1: none.
extern std::atomic<int32_t> s_logsize_monitor_pid;

// How the monitor restarts logging, in its own process, and what the current run of all processes
// is called. Given once at start-up, because this stands above this folder.
void set_logging_switch(int (*stop)(), int (*start)(), std::string (*current_run)());

// Starts the monitor when deletion and logging are on and none runs. Main process.
void checkLogSize();

// Asks the monitor to end, when one runs, and forgets it. It ends at once, or after the deletion
// that it has begun. Main process.
void stop_log_size_monitor();

// The monitor that was started last, also while it finishes a deletion after it was asked to end;
// -1 when it is gone. Main process.
int32_t living_log_size_monitor();

// To be told of every child that was reaped: true for that monitor.
bool log_size_monitor_ended(int32_t pid);

// The monitor's loop, in the forked process; returns when the monitor shall end.
void monitorLogSizeThread();

// Handler of SIGUSR1 in the monitor, and of the other signals that it ignores.
void signal_log_size_monitor_handler(int sig);

// Finds the numbered directory ("<digits>#...") with the smallest number of at least 1 in `dir`.
// Returns how many numbered directories there are, -1 when `dir` does not open or an argument is
// null. When one was found, `*oldest` gets its number and `name` (`size` bytes) its name, without
// terminator when it does not fit; otherwise both stay as they are.
int findOldestLogDir(const char* dir, int* oldest, char* name, size_t size);

// ---- The decisions, as functions over values. ----

struct size_reading {
  int64_t store_bytes;   // "/sdcard/zelkalog/"
  int64_t common_bytes;  // "/data/misc/zelkalog/"
  int quota_gib;         // "persist.sys.zelka.log.size"
  bool modem_or_wifi;    // these types get three quarters of the quota
  int64_t available;     // bytes free on "/data"; 0 and below: unknown
  // Bytes that the capture has allocated for lines to come: as good as free, to it alone.
  int64_t preallocated = 0;
};

struct size_verdict {
  float store_gib;
  float common_gib;
  float total_gib;
  bool over_quota;   // strictly more than the quota, counted in whole MiB
  bool extreme_low;  // less than 128 MiB available or preallocated on "/data"
};

size_verdict judge_sizes(const size_reading& reading);

// What to do with one of the two trees when over quota.
enum class eviction {
  nothing,
  keep_current,
  remove_oldest,
  restart,           // only the current run is left: delete everything else and start anew
  restart_withheld,  // the same, but the store may hold runs that would do
};

struct tree_reading {
  int count;      // numbered directories, -1: the tree does not open
  int oldest;     // smallest number, of an earlier look when this one found none; -1: none yet
  bool has_name;  // this look found one
  int current;    // number of the run being written
  bool logging;
  bool store_unknown = false;  // the store could not be listed for now: what is in it is not known
};

// What the last restart for the quota's sake has brought.
struct restart_record {
  int64_t at_ms = -1;       // of CLOCK_MONOTONIC; -1: none yet, or it has helped
  int64_t left_bytes = -1;  // what both trees held at the first look afterwards; -1: not looked yet
};

// A restart deletes everything; when that did not bring the sizes below the quota, something is in
// the way that it cannot delete. It is tried again after ten minutes, or when the trees have
// shrunk.
bool restart_is_due(const restart_record& last, int64_t now_ms, int64_t total_bytes);

eviction judge_store(const tree_reading& tree);    // finished runs: keep_current means go on
eviction judge_working(const tree_reading& tree);  // the working area

// The oldest run of `dir`: how many there are, its number (-1: none) and whole name. `unknown`:
// there is a directory, but it could not be listed to its end (no descriptor free, input error).
struct oldest_run {
  int count;
  int number;
  std::string name;
  bool unknown;
};
oldest_run find_oldest_run(const char* dir);
