#include "phone/logs/output.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/file.h>
#include <sys/stat.h>

#include "platform/linux/log_record.h"

namespace {

constexpr size_t kBlock = 4096;  // of the C library's output buffer

}  // namespace

LogOutput::LogOutput(std::string file, int64_t rotate_kb, int generations, LogFileBehavior behavior)
    : file_(std::move(file)),
      rotate_kb_(rotate_kb),
      generations_(generations),
      behavior_(behavior) {}

bool LogOutput::open() {
  if (file_.empty()) {
    fd_.reset(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0));
    return fd_.ok();
  }
  const mode_t mode = behavior_.private_mode ? 0640 : 0664;
  fd_.reset(::open(file_.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, mode));
  struct stat st;
  if (!fd_.ok() || fstat(fd_.get(), &st) != 0) return false;
  bytes_ = S_ISREG(st.st_mode) ? st.st_size : 0;
  if (behavior_.preallocates && rotate_kb_ > 0) preallocate();
  return true;
}

// Without room logcat continues without. One logcat at a time: concurrent preallocations on a tmpfs
// could all fail where a phone's file system would refuse only the last.
void LogOutput::preallocate() {
  const Fd lock(::open(kLogDirectory, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  flock(lock.get(), LOCK_EX);
  (void)!fallocate(fd_.get(), FALLOC_FL_KEEP_SIZE, 0, rotate_kb_ * 1024);
}

bool LogOutput::write(std::string_view text) {
  bytes_ += static_cast<int64_t>(text.size());
  buffer_ += text;
  const bool buffers = behavior_.buffers && !file_.empty();
  return write_buffer(buffers ? buffer_.size() / kBlock * kBlock : buffer_.size());
}

bool LogOutput::flush() {
  return write_buffer(buffer_.size());
}

bool LogOutput::write_buffer(size_t size) {
  for (size_t at = 0; at < size;) {
    const ssize_t n = ::write(fd_.get(), buffer_.data() + at, size - at);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return false;
    at += n;
  }
  buffer_.erase(0, size);
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
  bytes_ = 0;  // without generations the file grows on
  return true;
}
