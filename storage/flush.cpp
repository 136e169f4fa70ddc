#include "storage/flush.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "base/process.h"
#include "base/scoped.h"
#include "base/text.h"
#include "storage/utils.h"

namespace {

constexpr const char* kSharedStorage[] = {kMediaStoreDir, kMediaRoot};
constexpr int kLookMs = 100;

constexpr int kOpenFlags = O_RDONLY | O_NONBLOCK | O_CLOEXEC;

// Whether `path` is on shared storage, by whatever name.
bool is_shared(const char* path) {
  struct stat own;
  struct stat shared;
  return stat(path, &own) == 0 && stat(kSdcard, &shared) == 0 && own.st_dev == shared.st_dev;
}

ScopedFd open_working_area() {
  return ScopedFd(open(kWorkingDir, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

}  // namespace

std::string flush_storage(const char* path) {
  ScopedFd fd;
  for (const char* place : kSharedStorage) {
    if (!fd.valid() && is_shared(path)) fd.reset(open(place, kOpenFlags));
  }
  if (!fd.valid()) fd.reset(open(path, kOpenFlags));
  const pid_t pid = fd.valid() ? fork_process(Group::kNew) : -1;
  if (pid == -1) return strerror(errno);
  if (pid == 0) end_process(syncfs(fd.get()) == 0 ? 0 : errno);
  int status = 0;
  const pid_t reaped = wait_within(pid, kFlushMs, &status);
  if (reaped == 0) {
    signal_group(pid, SIGKILL);  // left to the reaper: it may be stuck in the kernel
    return "no end within 60 s";
  }
  if (reaped == -1 || !WIFEXITED(status)) return "the flush was ended";
  return WEXITSTATUS(status) == 0 ? "" : strerror(WEXITSTATUS(status));
}

MoveLock::MoveLock() : fd_(open_working_area()) {
  if (fd_.valid()) flock(fd_.get(), LOCK_EX | LOCK_NB);
}

bool is_move_under_way() {
  const ScopedFd fd = open_working_area();
  return fd.valid() && flock(fd.get(), LOCK_SH | LOCK_NB) != 0;
}

void wait_for_moves() {
  const int64_t deadline = monotonic_ms() + kFlushMs;
  while (is_move_under_way() && monotonic_ms() < deadline) sleep_ms(kLookMs);
}
