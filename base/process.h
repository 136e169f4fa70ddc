// Forking, ending and signalling processes. Nothing here logs: the loggers stand above it.
//
// The rules that this file keeps for everybody: a child starts with no signal blocked, without the
// main process's sockets, and, when it runs a shell or a tool, as the leader of a process group, so
// that what it started can be ended with it; a remembered pid is signalled only while it is ours.
#pragma once

#include <stdint.h>
#include <sys/types.h>

// The main process; set once by main() before the first fork. -1 in a tool or a test that is not a
// daemon.
extern int32_t s_harrowmossd_pid;

// getpid(), asked once in each process: every log line wants it, and some C libraries make a system
// call of it. Right after every fork(); not between a vfork() and its exec.
pid_t own_pid();

// gettid(), without a system call on the first thread, where most log lines come from.
pid_t own_thread_id();

// True in the process that serves the control socket.
bool is_main_process();

// The parent's pid for log lines. The main process's parent is init and stays so: it is asked once.
pid_t parent_pid();

enum class Group {
  kInherit,  // stays in the forking process's group
  kOwn,      // leads a group of its own
};

// fork() for everything in the daemon. Returns as fork() does; 0 in the child, which has no signal
// blocked, has noted none, and has closed what close_in_children() and set_connection() name. Safe
// in a signal handler and in an extra thread.
pid_t fork_process(Group where);

// The same for the descriptor watcher's child, which keeps the connection. When it cannot become a
// shell it goes on in the code of the process that forked it, as a stray child, to the end of the
// request or of the start. It sends no reply, accepts no client, starts no size monitor and tells
// nobody of a new run.
pid_t fork_process_keeping_connection(Group where);

// True in a stray child.
bool is_stray_child();

// Ends a stray child; does nothing in any other process. Where only the real one may go on.
void end_stray_child();

// `fd` stays open in the main process for ever and is closed in every child; at most 4, more abort.
// Main thread of the main process only, as set_connection().
void close_in_children(int fd);

// The client's connection, -1 for none.
void set_connection(int fd);

// Ends this process at once with `status`: no destructors, no atexit handlers, which could wait for
// a lock that the fork copied. The only way out for every child.
[[noreturn]] void end_process(int status);

// True while the caller may ask the C library for local time: in the first thread of a process
// that was not forked beside that lock. See local_time.h.
bool may_convert_time();

// True when `pid` (above 1) is a process of ours: its parent is this process, the main process, or
// the process that forked this one.
bool is_ours(pid_t pid);

// True when `pid` (above 1) runs and is a child of `parent`.
bool is_child_of(pid_t pid, pid_t parent);

// Sends `sig` to `pid` when it is ours. Returns 0, or -1 when nothing was signalled.
int signal_process(pid_t pid, int sig);

// Sends `sig` to the process group `leader`, when one of its members is ours (the leader itself may
// be gone), and then to the leader. Returns 0 when anything was signalled, else -1.
int signal_group(pid_t leader, int sig);

// Sends `sig` to our child `pid` and to the process group that it is in, unless that is this
// process's own. For what a dead worker left behind: its group has lost its leader.
void signal_with_its_group(pid_t pid, int sig);

// Ends our child `pid` with SIGKILL, with the group that it may lead and with all that descends
// from it: a worker's tool is in the worker's group.
void kill_with_descendants(pid_t pid);

// Waits up to `milliseconds` for the child `pid` to end, and reaps it. Returns its pid when it was
// reaped, -1 when it is no child of ours (any more), 0 when it still runs. A signal handler that
// runs meanwhile neither ends nor shortens the wait. A `status` may be null.
pid_t wait_within(pid_t pid, int milliseconds, int* status);

// Waits for the child `pid` without bound. Its pid, or -1 when it is no child of ours.
pid_t wait_for(pid_t pid, int* status);

// Sleeps the full time whatever signals arrive.
void sleep_ms(int milliseconds);

// Milliseconds of CLOCK_MONOTONIC.
int64_t monotonic_ms();

// Reaps one ended child of the calling thread without waiting, and never another thread's, whose
// waiter would miss it. Returns its pid, 0 when none has ended, -1 when there is no child.
pid_t reap_any(int* status);

// Writes the pids of the living members of the process group `leader`, at most `size`; how many.
int list_group(pid_t leader, pid_t* pids, int size);

// Writes the pids of `parent`'s living children that lead a process group, at most `size`; how
// many.
int list_group_leaders(pid_t parent, pid_t* pids, int size);

// Writes the pids of the calling thread's children, ended ones included, at most `size`, into
// `pids`; returns how many. What is orphaned below a subreaper becomes its first thread's child.
int list_children(pid_t* pids, int size);
