#include "base/beneath.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/scoped.h"

namespace {

// The platform's names that lead through its own links and have more than one component.
constexpr const char* kPlatformPrefixes[] = {"/mnt/sdcard", "/mnt/user/0/primary",
                                             "/storage/self/primary", "/data/user/0"};

constexpr int kDirectory = O_PATH | O_DIRECTORY | O_CLOEXEC;

// The length of the platform's prefix of `path`; 0 for a relative path.
size_t prefix_length(const char* path) {
  if (path[0] != '/') return 0;
  for (const char* prefix : kPlatformPrefixes) {
    const size_t length = strlen(prefix);
    if (strncmp(path, prefix, length) == 0 && (path[length] == '/' || path[length] == '\0')) {
      return length;
    }
  }
  return 1 + strcspn(path + 1, "/");
}

using Component = char[NAME_MAX + 1];

// Copies the next component of `*at` and advances past it. False at the end. An over-long one
// becomes "", which names nothing.
bool next_component(const char** at, Component& name) {
  *at += strspn(*at, "/");
  const size_t length = strcspn(*at, "/");
  if (length == 0) return false;
  name[0] = '\0';
  if (length < sizeof(name)) {
    memcpy(name, *at, length);
    name[length] = '\0';
  }
  *at += length;
  return true;
}

int open_prefix(const char* path, size_t length) {
  char prefix[64] = ".";
  if (length >= sizeof(prefix)) {
    errno = ENAMETOOLONG;
    return -1;
  }
  if (length > 0) {
    memcpy(prefix, path, length);
    prefix[length] = '\0';
  }
  return open(prefix, kDirectory);
}

// Opens the parent directory of `path` and puts the last component into `name`: "." when `path` is
// only the platform's prefix. -1 with errno, ELOOP for a link.
int open_parent(const char* path, Component& name) {
  const size_t prefix = prefix_length(path);
  const char* at = path + prefix;
  Component following;
  const bool below = next_component(&at, name);
  if (!below && prefix > 0 && memchr(path + 1, '/', prefix - 1) == nullptr) {
    const char* first = path;  // a file directly below "/"
    const bool named = next_component(&first, name);
    if (!named) memcpy(name, ".", 2);
    return open("/", kDirectory);
  }
  ScopedFd dir(open_prefix(path, prefix));
  if (!below) memcpy(name, ".", 2);
  while (dir.valid() && below && next_component(&at, following)) {
    ScopedFd next(openat(dir.get(), name, kDirectory | O_NOFOLLOW));
    struct stat info;
    if (!next.valid() && errno == ENOTDIR &&
        fstatat(dir.get(), name, &info, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(info.st_mode)) {
      errno = ELOOP;
    }
    dir.reset(next.release());
    memcpy(name, following, sizeof(name));
  }
  return dir.release();
}

}  // namespace

int open_file_beneath(const char* path, int flags, mode_t mode) {
  Component name;
  ScopedFd dir(open_parent(path, name));
  if (!dir.valid()) return -1;
  // O_NONBLOCK: a FIFO without a reader fails here, one with a reader below.
  ScopedFd fd(
      openat(dir.get(), name, flags | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, mode));
  struct stat info;
  if (!fd.valid() || (fstat(fd.get(), &info) == 0 && S_ISREG(info.st_mode))) return fd.release();
  errno = ENXIO;
  return -1;
}

FILE* open_stream_beneath(const char* path, int flags, const char* mode) {
  ScopedFd fd(open_file_beneath(path, flags, 0666));
  FILE* file = fd.valid() ? fdopen(fd.get(), mode) : nullptr;
  if (file != nullptr) fd.release();
  return file;
}

bool is_trap(const char* path) {
  if (strspn(path + prefix_length(path), "/") == strlen(path + prefix_length(path))) return false;
  Component name;
  ScopedFd dir(open_parent(path, name));
  struct stat info;
  if (!dir.valid()) return errno == ELOOP;
  if (fstatat(dir.get(), name, &info, AT_SYMLINK_NOFOLLOW) != 0) return false;
  return !S_ISREG(info.st_mode) && !S_ISDIR(info.st_mode);
}

MkdirStep make_shared_directory(const char* path) {
  Component name;
  ScopedFd parent(open_parent(path, name));
  if (!parent.valid() || mkdirat(parent.get(), name, 0777) != 0) return MkdirStep::kMkdir;
  ScopedFd dir(openat(parent.get(), name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!dir.valid() || fchown(dir.get(), kSdcardOwner, kSdcardOwner) != 0) return MkdirStep::kChown;
  return fchmod(dir.get(), 0777) == 0 ? MkdirStep::kDone : MkdirStep::kChmod;
}
