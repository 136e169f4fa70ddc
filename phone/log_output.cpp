#include "phone/log_output.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>

LogOutput::LogOutput(std::string file, int64_t rotate_kb, int generations)
    : file_(std::move(file)), rotate_kb_(rotate_kb), generations_(generations) {}

bool LogOutput::open() {
  if (file_.empty()) {
    fd_.reset(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0));
    return fd_.ok();
  }
  fd_.reset(::open(file_.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0664));
  struct stat st;
  if (!fd_.ok() || fstat(fd_.get(), &st) != 0) return false;
  bytes_ = S_ISREG(st.st_mode) ? st.st_size : 0;
  return true;
}

bool LogOutput::write(std::string_view text) {
  bytes_ += static_cast<int64_t>(text.size());
  while (!text.empty()) {
    const ssize_t n = ::write(fd_.get(), text.data(), text.size());
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return false;
    text.remove_prefix(n);
  }
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
  fd_.reset();
  for (int i = generations_; i > 0; i--) {
    if (rename(generation(i - 1).c_str(), generation(i).c_str()) != 0 && errno != ENOENT)
      perror("while rotating log files");
  }
  if (!open()) return false;
  bytes_ = 0;  // with no generation to keep, the file just goes on
  return true;
}
