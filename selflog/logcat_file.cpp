#include "selflog/logcat_file.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "base/process.h"
#include "base/scoped.h"
#include "model/data_room.h"
#include "selflog/log.h"

namespace {

constexpr char kLogSource[] = "utils";
constexpr int64_t kTailBytes = 8192;  // twice the longest line: an entry has at most 4068 bytes
constexpr int kKillMs = 1000;         // for a killed process to go

}  // namespace

int64_t whole_lines(int64_t length, std::string_view tail) {
  const size_t newline = tail.rfind('\n');
  const auto tail_length = static_cast<int64_t>(tail.size());
  if (newline == std::string_view::npos) return tail_length < length ? length : 0;
  return length - tail_length + static_cast<int64_t>(newline) + 1;
}

bool trim_logcat_file(int dir, const char* name, TornLine torn) {
  ScopedFd fd(openat(dir, name, O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat info;
  if (!fd.valid() || fstat(fd.get(), &info) != 0) return false;
  if (!S_ISREG(info.st_mode)) {
    errno = EINVAL;
    return false;
  }
  int64_t length = info.st_size;
  if (torn == TornLine::kCut) {
    char tail[kTailBytes];
    const int64_t wanted = std::min<int64_t>(length, kTailBytes);
    const ssize_t got = pread(fd.get(), tail, static_cast<size_t>(wanted), length - wanted);
    if (got != wanted) return false;
    length = whole_lines(length, {tail, static_cast<size_t>(got)});
  }
  if (length == info.st_size && preallocated(info) < info.st_blksize) return true;
  return ftruncate(fd.get(), length) == 0;
}

pid_t await_logcat(pid_t pid, int milliseconds, const char* what, int* status) {
  const pid_t reaped = wait_within(pid, milliseconds, status);
  if (reaped != 0) return reaped;
  LOGE("logcat %d does not end in time, kill it: %s", pid, what);
  signal_group(pid, SIGKILL);
  wait_within(pid, kKillMs, nullptr);
  return 0;
}
