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

// Single workers that the stop or the watchdog treats in its own way. 0: none. Written by the start
// routine that forks them, in the process that runs it.
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
// because nobody could end it later; false then.
bool add_to_group(int32_t* table, pid_t pid);
inline void add_to_debug_group(pid_t pid) {
  add_to_group(s_debug_group, pid);
}

// Forks a worker of debug logging. It leads a process group of its own and is entered in
// `s_debug_group`. Returns as fork() does; a failure is logged under the name `function`.
pid_t fork_worker(const char* function);

// How many polls, one every `poll_ms` from the start on, find a child running that ends after
// `elapsed_ms`; 0 when the first one finds it gone.
constexpr int polls_before(int64_t elapsed_ms, int poll_ms) {
  return static_cast<int>((elapsed_ms + poll_ms - 1) / poll_ms);
}

// Waits until the child `pid` is gone: polls every `poll_ms`, the last time after `limit` pauses
// (0 or less: polls once). Returns how many polls found it running, 0 also when it was never ours;
// -1 when the last one did. The child's end wakes the wait, but counts at the next poll.
int count_polls(pid_t pid, int poll_ms, int limit);

// Waits for the child `pid`: polls every 100 ms, `ticks` + 1 times (30 ticks are about 3.1 s; 0 or
// less polls once). One that the last poll finds running is killed with its process group after
// another 100 ms, and left to the reaper. Returns 1 when the child is gone, also when it was never
// ours; 0 when it was killed.
int wait_child_to_finish(pid_t pid, int ticks);

// Waits for the request's child `pid`: looks every `poll_ms`, at a safe point each time, and kills
// it with its group once `polls` looks have passed, again and again until it is gone. Logs under
// the name `function`. Returns how many looks found it running.
int await_request_child(const char* function, pid_t pid, int poll_ms, int polls);

// Names the calling process "harrowmossd:debug-<name>", of which the kernel keeps the last 15
// characters: the end tells workers apart. `ignored` is not used. Returns prctl()'s result. In a
// freshly forked worker.
int set_process_name(const char* name, int ignored = 0);

// Appends "harrowmossd:debug-<name>", or ":general-" when `is_debug` is not above 0, and "-vesk" on
// request, to the text in `buf` (96 bytes; longer aborts) and returns `buf`: an argv[0].
char* build_process_name(const char* name, char* buf, int is_debug, bool vesk_suffix);

// Ends every child of the main thread that is not in `spared` (`count` pids), and the workers that
// the size monitor `monitor` (-1: none) has started and that are still its children: SIGTERM, up to
// 3 s for all together, SIGKILL. What workers and scripts left behind has become a child of the
// main thread, because the main process is a subreaper; children of the other threads (the self-log
// collector's logcat, the shell of a rotation) stay theirs. Main process only; elsewhere it does
// nothing.
void end_leftover_children(const pid_t* spared, int count, pid_t monitor = -1);

// Ends what is left in the process groups of `leaders` (`count` pids) in the same way. For the size
// monitor, which does not become the parent of what its workers leave behind.
void end_groups(const pid_t* leaders, int count);
