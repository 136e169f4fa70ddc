// Helpers for the programs of the bench phone.
#pragma once

#include <errno.h>
#include <stdint.h>
#include <sys/types.h>
#include <unistd.h>

#include <string>
#include <string_view>
#include <vector>

// Owns a descriptor; closing keeps errno.
class Fd {
 public:
  explicit Fd(int fd = -1) : fd_(fd) {}
  Fd(const Fd&) = delete;
  Fd& operator=(const Fd&) = delete;
  Fd(Fd&& other) noexcept : fd_(other.release()) {}
  Fd& operator=(Fd&& other) noexcept {
    reset(other.release());
    return *this;
  }
  ~Fd() { reset(); }

  int get() const { return fd_; }
  bool ok() const { return fd_ >= 0; }
  int release() {
    const int fd = fd_;
    fd_ = -1;
    return fd;
  }
  void reset(int fd = -1) {
    const int saved_errno = errno;
    if (fd_ >= 0) close(fd_);
    fd_ = fd;
    errno = saved_errno;
  }

 private:
  int fd_;
};

// The whole file; "" with errno when it cannot be read.
std::string read_file(const std::string& path);

// The decimal number after the first `key`, blanks skipped; -1 when there is none.
int64_t number_behind(const std::string& text, const std::string& key);

// Writes all of it to a blocking descriptor. False with errno.
bool write_all(int fd, std::string_view text);

// Replaces the file's content; creates missing parent directories (0755). False with errno.
bool write_file(const std::string& path, std::string_view text, mode_t mode);

// Appends with one write(2), so that concurrent writers do not mix. False with errno.
bool append_file(const std::string& path, std::string_view text);

// Creates a directory and its missing parents with `mode`; an existing one is left as it is.
bool make_dirs(const std::string& path, mode_t mode);
// Creates the parents of `path` (0755).
bool make_parents(const std::string& path);

// Copies a regular file, replacing `to`; mode kept. False with errno.
bool copy_file(const std::string& from, const std::string& to);

// The non-empty fields between any of `separators`.
std::vector<std::string> split(std::string_view text, const char* separators);

// The whole text as a decimal number in [low, high]; false for anything else.
bool parse_number(std::string_view text, long low, long high, long* number);

// "<what>: <strerror(errno)>".
std::string errno_text(const std::string& what);
