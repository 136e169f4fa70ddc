#include "phone/logs/output.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/file.h>
#include <sys/stat.h>

#include "platform/linux/log_record.h"

constexpr size_t kBlock = 4096;  // of the C library's output buffer

LogOutput::LogOutput(std::string file, int64_t rotate_kb, int generations, LogFileHabits habits)
    : file_(std::move(file)), rotate_kb_(rotate_kb), generations_(generations), habits_(habits) {}

bool LogOutput::open() {
  if (file_.empty()) {
    fd_.reset(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0));
    return fd_.ok();
  }
  const mode_t mode = habits_.private_mode ? 0640 : 0664;
  fd_.reset(::open(file_.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, mode));
  struct stat st;
  if (!fd_.ok() || fstat(fd_.get(), &st) != 0) return false;
  bytes_ = S_ISREG(st.st_mode) ? st.st_size : 0;
  if (habits_.preallocates && rotate_kb_ > 0) preallocate();
  return true;
}

// Where there is no room for it, logcat goes on without. One at a time: a tmpfs takes its time over
// the pages, and several at once could all fail where a phone's file system refuses the last one.
void LogOutput::preallocate() {
  const Fd turn(::open(kLogDirectory, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  flock(turn.get(), LOCK_EX);
  (void)!fallocate(fd_.get(), FALLOC_FL_KEEP_SIZE, 0, rotate_kb_ * 1024);
}

bool LogOutput::write(std::string_view text) {
  bytes_ += static_cast<int64_t>(text.size());
  held_ += text;
  const bool buffers = habits_.buffers && !file_.empty();
  return write_held(buffers ? held_.size() / kBlock * kBlock : held_.size());
}

bool LogOutput::flush() {
  return write_held(held_.size());
}

bool LogOutput::write_held(size_t size) {
  for (size_t at = 0; at < size;) {
    const ssize_t n = ::write(fd_.get(), held_.data() + at, size - at);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return false;
    at += n;
  }
  held_.erase(0, size);
  return true;
}

std::string LogOutput::generation(int number) const {
  if (number == 0) return file_;
  const int digits = static_cast<int>(std::to_string(generations_).size());
  char suffix[16];
  snprintf(suffix, sizeof suffix, ".%.*d", digits, number);
  return file_ + suffix;
}

bool LogOutput::rotate_if_full() {
  if (rotate_kb_ <= 0 || file_.empty() || bytes_ / 1024 < rotate_kb_) return true;
  if (!flush()) return false;
  fd_.reset();
  for (int i = generations_; i > 0; i--) {
    if (rename(generation(i - 1).c_str(), generation(i).c_str()) != 0 && errno != ENOENT)
      perror("while rotating log files");
  }
  if (!open()) return false;
  bytes_ = 0;  // with no generation to keep, the file just goes on
  return true;
}
