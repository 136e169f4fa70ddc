// Signals in the main process are noted when they arrive and handled at safe points. Logging,
// forking or reaping inside a handler would deadlock with what the main thread is doing, or change
// the worker tables under its hands. A safe point is every wait for a client.
#pragma once

#include <signal.h>

// Opens the wake-up pipe. False with errno when that fails: wait_ready() tries again then, and
// looks at the notes once a second meanwhile. Main thread of the main process; its two
// descriptors are closed in children.
bool open_signal_pipe();

// Signal handler body of the main process: notes `sig` and wakes the main thread. Keeps errno.
void note_signal(int sig);

// Calls `handle(sig)` once for each signal noted since the last call, in ascending order. Does
// nothing in another process than the main one.
void handle_noted_signals(void (*handle)(int sig));

// The handler of safe_point(), and what is called at every safe point before the noted signals: a
// look at what the main process shares with others. Main process, once at start-up.
void set_safe_point_handler(void (*handle)(int sig), void (*look)());

// A safe point inside of a request's own waiting: handles what was noted. Nothing while a
// NoSafePoints object lives: the start and the stop change the tables that the handling reads.
void safe_point();
class NoSafePoints {
 public:
  NoSafePoints();
  ~NoSafePoints();
  NoSafePoints(const NoSafePoints&) = delete;
  NoSafePoints& operator=(const NoSafePoints&) = delete;
};

// A child inherits nothing that was noted for its parent.
void forget_noted_signals();

// Waits until `fd` is ready for `events` (POLLIN or POLLOUT), handling noted signals meanwhile and
// before. Errors and hang-ups count as ready: the caller's read or write reports them. In another
// process than the main one it only waits.
void wait_ready(int fd, short events, void (*handle)(int sig));

// Marks the dynamic extent of a signal handler. Counts those on the process's first thread, in a
// plain variable: a thread_local one allocates memory at a thread's first use on Android.
class SignalScope {
 public:
  SignalScope();
  ~SignalScope();
  SignalScope(const SignalScope&) = delete;
  SignalScope& operator=(const SignalScope&) = delete;

 private:
  const bool counted_;  // a handler that forks ends in the child on another first thread
};

// True while a handler runs on the first thread. Asked on that thread only.
bool in_signal_handler();
