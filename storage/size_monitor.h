// The log size monitor: a forked process that keeps the store under its quota and rescues a full
// "/data". checkLogSize() runs in the main process, the rest in the monitor, on its own copies of
// the globals. The two talk only through SIGUSR1 and properties.
#pragma once

#include <stdint.h>

#include <atomic>
#include <string>

#include "model/eviction.h"

// Main: a monitor is believed to run; monitor: go on looping. A monitor that ended by itself leaves
// the main process's copy true until logging is stopped once.
extern std::atomic<bool> s_logsize_monitor;

// Main: the monitor; monitor: itself; -1: none.
extern std::atomic<int32_t> s_logsize_monitor_pid;

// How the monitor stops and starts logging, in its own process, and reads the name of the current
// run, whichever process started that. Set once at start-up: these functions are in folders that
// this one may not include.
void set_logging_switch(int (*stop)(), int (*start)(), std::string (*current_run)());

// Starts the monitor when deletion and logging are on and none runs. Main process.
void checkLogSize();

// Asks the monitor to end, when one runs, and forgets it. It ends at once, or after the deletion
// that it has begun. Main process.
void stop_log_size_monitor();

// The monitor that was started last; also while it finishes a deletion after
// stop_log_size_monitor(). -1 when it has ended. Main process.
int32_t living_log_size_monitor();

// The reaper calls it for every child; true if that was the monitor.
bool log_size_monitor_ended(int32_t pid);

// The monitor's loop, in the forked process; returns when the monitor is to end.
void monitorLogSizeThread();

// Handler of SIGUSR1 in the monitor, and of the other signals that it ignores.
void signal_log_size_monitor_handler(int sig);

// The oldest run of `dir`; `count` is -1 when that does not open. An entry that cannot be looked at
// is skipped with an error line.
OldestRun findOldestLogDir(const char* dir);
