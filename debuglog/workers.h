// The worker processes of debug logging: how they are named, entered in the process groups, waited
// for and ended.
#pragma once

#include <stdint.h>
#include <sys/types.h>

#include <atomic>

// Tables of worker pids; a slot holds 0 when it is free. Index 0 is never used: "32 slots" are the
// indices 1..32. Allocated by initialize_globals(), null before.
constexpr int kGroupSlots = 32;
extern int32_t* s_debug_group;    // workers of debug logging, logcats excepted
extern int32_t* s_general_group;  // logcats of the general collection

// Workers that the stop or the watchdog treats specially. 0: none. Set by the start routine that
// forks them, in the process that runs it.
extern int32_t qrtr_log_pid;    // router log copier
extern int32_t watch_fd_pid;    // descriptor watcher
extern int32_t net_log_pid;     // packet capture
extern int32_t fg_log_pid;      // fuel-gauge log
extern int32_t qsee_log_pid;    // secure-world log copier
extern int32_t bsp_log_pid;     // trust-zone log copier
extern int32_t mpss_stats_pid;  // modem watchdog

// Keeps the router log's rotation thread looping. Set by catcher_mobile_log(), cleared by the stop.
extern std::atomic<bool> qtrlog_running;

// The one-shot worker that saves the kernel log at start-up; not a part of debug logging.
extern int32_t s_kernel_log_pid;

// The child that the current request waits for, 0 when none.
extern int32_t s_request_pid;

// Enters `pid` in the first free slot of `table`. Without one the process is sent SIGTERM at once,
// because a stop would not find it; false.
bool add_to_group(int32_t* table, pid_t pid);
inline void add_to_debug_group(pid_t pid) {
  add_to_group(s_debug_group, pid);
}

// Forks a worker of debug logging. It leads a process group of its own and is entered in
// `s_debug_group`. Returns as fork() does; a failure is logged under the name `function`.
pid_t fork_worker(const char* function);

// A bounded wait for a child: polls every `poll_ms`. A child that `polls` + 1 polls have found
// running (0 or less: one poll) is killed with its group after another `last_pause_ms`.
struct ChildWait {
  const char* function;  // logs under its name
  int poll_ms;
  int polls;
  int last_pause_ms;  // before the kill
  int kill_pause_ms;  // after it
  bool until_gone;    // go on polling and killing until it is reaped; else one kill, left unreaped
  bool is_request;    // log every poll, which is a safe point
};

// Waits for the child `pid`; its end wakes the wait, but counts at the next poll. Returns how many
// polls found it running, 0 also when it was never ours; -1 when it was killed and not reaped.
int await_child(pid_t pid, const ChildWait& how);

// Waits for the child `pid`: polls every 100 ms, `ticks` + 1 times (30 ticks are about 3.1 s), and
// kills it once. Returns 1 when the child is gone, also when it was never ours; 0 when it was
// killed.
int wait_child_to_finish(pid_t pid, int ticks);

// Waits for the child `pid` of the current request, until it is gone. Returns as await_child().
int await_request_child(const char* function, pid_t pid, int poll_ms, int polls);

// Names the calling process "harrowmossd:debug-<name>", of which the kernel keeps the last 15
// characters: the end tells workers apart. `ignored` is not used. Returns prctl()'s result. In a
// freshly forked worker.
int set_process_name(const char* name, int ignored = 0);

// Appends "harrowmossd:debug-<name>", or ":general-" when `is_debug` is not above 0, and "-vesk" on
// request, to the text in `buf` (96 bytes; longer aborts) and returns `buf`: an argv[0].
char* build_process_name(const char* name, char* buf, int is_debug, bool vesk_suffix);

// Ends every child of the main thread that is not in `spared` (`count` pids), and those of the size
// monitor `monitor` (-1: none) that lead a group, its workers: SIGTERM, up to 3 s for all together,
// SIGKILL. Because the main process is a subreaper, orphans of workers and scripts are among its
// children; children of other threads are left to those. Main process only; elsewhere it does
// nothing.
void end_leftover_children(const pid_t* spared, int count, pid_t monitor = -1);

// Ends what is left in the process groups of `leaders` (`count` pids) in the same way. For the size
// monitor, which is no subreaper, and for the workers of a superseded run.
void end_groups(const pid_t* leaders, int count);
