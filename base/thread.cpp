#include "base/thread.h"

#include <errno.h>
#include <pthread.h>

ScopedSignalBlocker::ScopedSignalBlocker() {
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before_);
}

ScopedSignalBlocker::ScopedSignalBlocker(int sig) {
  sigset_t one;
  sigemptyset(&one);
  sigaddset(&one, sig);
  pthread_sigmask(SIG_BLOCK, &one, &before_);
}

ScopedSignalBlocker::~ScopedSignalBlocker() {
  const int saved_errno = errno;
  pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  errno = saved_errno;
}

int start_thread(void* (*body)(void*), void* arg) {
  const ScopedSignalBlocker for_the_thread;
  pthread_t thread;
  const int result = pthread_create(&thread, nullptr, body, arg);
  if (result == 0) pthread_detach(thread);
  return result;
}
