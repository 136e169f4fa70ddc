#include "base/thread.h"

#include <pthread.h>
#include <signal.h>

int start_thread(void* (*body)(void*), void* arg) {
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  pthread_t thread;
  const int result = pthread_create(&thread, nullptr, body, arg);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  if (result == 0) pthread_detach(thread);
  return result;
}
