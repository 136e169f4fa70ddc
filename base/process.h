// Forking, waiting for and signalling processes. Nothing here logs.
//
// A child starts with no signal blocked and without the main process's sockets; one that runs a
// shell or a tool leads a process group, so that what it starts can be ended with it. A remembered
// pid is signalled only while it is ours.
#pragma once

#include <stdint.h>
#include <sys/types.h>

// The main process; set once by main() before the first fork. -1 in a tool or a test that is not a
// daemon.
extern int32_t s_harrowmossd_pid;

// Cached getpid(). Correct after fork(); not between vfork() and exec.
pid_t own_pid();

// True on the thread that the program began on. In a child: if that thread forked it.
bool on_first_thread();

// gettid(), without a system call on the first thread.
pid_t own_thread_id();

// True in the process that serves the control socket.
bool is_main_process();

// The parent's pid for log lines; cached in the main process, whose parent stays init.
pid_t parent_pid();

enum class Group {
  kInherit,  // the forking process's
  kNew,      // a new one, which the child leads
};

// fork() for everything in the daemon. Returns as fork() does. The child has no signal blocked and
// has closed what close_in_children() and set_keepable_fd() name. Safe in a signal handler and in
// an extra thread.
pid_t fork_process(Group where);

// The same, but the child keeps the keepable descriptor and is, unless it execs, a stray child: it
// goes on in its parent's code to the end of the request or of the start. A stray child sends no
// reply, accepts no client and starts no size monitor.
pid_t fork_process_keeping_fd(Group where);

// True in a stray child.
bool is_stray_child();

// Ends a stray child; does nothing in any other process.
void end_stray_child();

// Every child closes `fd`, which stays open in the main process for ever; at most 4, more abort.
// Main thread of the main process.
void close_in_children(int fd);

// Every child closes `fd` (-1: none), except those of fork_process_keeping_fd(). Replaces the one
// before. Main thread of the main process.
void set_keepable_fd(int fd);

// _exit(): every child ends through this. Destructors and atexit handlers could wait for a lock
// that the fork copied.
[[noreturn]] void end_process(int status);

// True when `pid` (above 1) is a process of ours: its parent is this process, the main process, or
// the process that forked this one.
bool is_ours(pid_t pid);

// True when `pid` (above 1) runs and is a child of `parent`.
bool is_child_of(pid_t pid, pid_t parent);

// Sends `sig` to `pid` when it is ours. Returns 0, or -1 when nothing was signalled.
int signal_process(pid_t pid, int sig);

// Sends `sig` to the process group of `pid`, unless that is this process's own, and then to `pid`.
// When `pid` is not ours any more, to the group that it led, if one of its members is ours. Returns
// 0 when anything was signalled, else -1.
int signal_group(pid_t pid, int sig);

// Sends SIGKILL to `pid` when it is ours, to its group as signal_group() does, and to all of its
// descendants.
void kill_tree(pid_t pid);

// Waits up to `milliseconds` for the child `pid` to end, and reaps it. Returns its pid when it was
// reaped, -1 when it is no child of ours (any more), 0 when it still runs. Signals do not shorten
// the wait. `status` may be null.
pid_t wait_within(pid_t pid, int milliseconds, int* status);

// Waits for the child `pid` without bound. Returns its pid, or -1 when it is no child of ours.
pid_t wait_for(pid_t pid, int* status);

// Sleeps the full time, whatever signals arrive.
void sleep_ms(int milliseconds);

// Milliseconds of CLOCK_MONOTONIC.
int64_t monotonic_ms();

// Reaps one ended child of the calling thread without waiting, and never another thread's, whose
// waiter would miss it. Returns its pid, 0 when none has ended, -1 when there is no child.
pid_t reap_any(int* status);

// These write at most `size` pids (at least 1) and return how many.

// The living members of the process group `leader`.
int list_group(pid_t leader, pid_t* pids, int size);

// The living children of `parent` that lead a process group.
int list_group_leaders(pid_t parent, pid_t* pids, int size);

// The calling thread's children, ended ones included. Orphans below a subreaper become its first
// thread's children.
int list_children(pid_t* pids, int size);
