// Extra threads and signal masks.
#pragma once

#include <signal.h>

// Blocks signals on the calling thread, and on the threads that it starts, while it lives.
class ScopedSignalBlocker {
 public:
  ScopedSignalBlocker();  // all of them
  explicit ScopedSignalBlocker(int sig);
  ScopedSignalBlocker(const ScopedSignalBlocker&) = delete;
  ScopedSignalBlocker& operator=(const ScopedSignalBlocker&) = delete;
  ~ScopedSignalBlocker();

  // The mask that the destructor restores: to be changed, or to wait with.
  sigset_t& before() { return before_; }

 private:
  sigset_t before_;
};

// Starts a detached thread with all signals blocked: handlers run on the main thread, and a reaper
// on another one would steal children that somebody waits for. Returns pthread_create()'s result:
// 0, or a positive errno value.
int start_thread(void* (*body)(void*), void* arg);
