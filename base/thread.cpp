#include "base/thread.h"

#include <pthread.h>

SignalsBlocked::SignalsBlocked() {
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before_);
}

SignalsBlocked::~SignalsBlocked() {
  pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

int start_thread(void* (*body)(void*), void* arg) {
  const SignalsBlocked for_the_thread;
  pthread_t thread;
  const int result = pthread_create(&thread, nullptr, body, arg);
  if (result == 0) pthread_detach(thread);
  return result;
}
