// Deferred signals: the main process blocks the signals that it handles, and handles them only at
// safe points and while it waits for a client. Logging, forking or reaping in a handler at any
// other time could deadlock with the main thread, or change the worker tables under it.
//
// Main thread of the main process, unless a function says otherwise.
#pragma once

// Signal handler body: records `sig` for the next safe point. Changes nothing else, not even errno.
void record_signal(int sig);

// `handle(sig)` is called for each recorded signal, and `before()` ahead of them at every safe
// point. Once at start-up.
void set_signal_hooks(void (*handle)(int sig), void (*before)());

// Delivers pending signals, then handles each recorded one once, in ascending order. Does nothing
// without hooks, in another process, or while a ScopedNoSafePoints lives.
void safe_point();

// While one lives, safe_point() does nothing: the start and the stop of logging change the tables
// that the handling reads.
class ScopedNoSafePoints {
 public:
  ScopedNoSafePoints();
  ~ScopedNoSafePoints();
  ScopedNoSafePoints(const ScopedNoSafePoints&) = delete;
  ScopedNoSafePoints& operator=(const ScopedNoSafePoints&) = delete;
};

// Waits until `fd` is ready for `events` (POLLIN or POLLOUT), handling signals that arrive
// meanwhile; those that are pending when `fd` is ready stay pending. Errors and hang-ups count as
// ready: the caller's read or write reports them. In another process it only waits.
void wait_ready(int fd, short events);
