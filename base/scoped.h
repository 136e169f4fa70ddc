// Owners for descriptors and directory streams. Closing keeps errno, so that the caller reports the
// call that failed.
#pragma once

#include <dirent.h>
#include <errno.h>
#include <unistd.h>

template <typename T, typename Closer>
class Scoped {
 public:
  explicit Scoped(T value = Closer::none()) : value_(value) {}
  Scoped(const Scoped&) = delete;
  Scoped& operator=(const Scoped&) = delete;
  ~Scoped() { reset(); }

  T get() const { return value_; }
  bool valid() const { return value_ != Closer::none(); }
  T release() {
    const T value = value_;
    value_ = Closer::none();
    return value;
  }
  void reset(T value = Closer::none()) {
    const int saved_errno = errno;
    if (valid()) Closer::close(value_);
    value_ = value;
    errno = saved_errno;
  }

 private:
  T value_;
};

struct FdCloser {
  static int none() { return -1; }
  static void close(int fd) { ::close(fd); }
};
struct DirCloser {
  static DIR* none() { return nullptr; }
  static void close(DIR* dir) { ::closedir(dir); }
};

using ScopedFd = Scoped<int, FdCloser>;
using ScopedDir = Scoped<DIR*, DirCloser>;
