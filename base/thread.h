// Extra threads. They start with all signals blocked: a handler belongs on the main thread, and a
// reaper on another one would steal the children that somebody waits for.
#pragma once

#include <signal.h>

// All signals are blocked on the calling thread, and on the threads that it starts, while it lives.
class SignalsBlocked {
 public:
  SignalsBlocked();
  ~SignalsBlocked();
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  sigset_t before_;
};

// Starts a detached thread. Returns pthread_create()'s result: 0, or a positive errno value.
int start_thread(void* (*body)(void*), void* arg);
