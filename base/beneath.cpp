#include "base/beneath.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/scoped.h"

namespace {

// Names that the platform makes of links of its own, and that are longer than one component.
constexpr const char* kPlatformWays[] = {"/mnt/sdcard", "/mnt/user/0/primary",
                                         "/storage/self/primary", "/data/user/0"};

constexpr int kDirectory = O_PATH | O_DIRECTORY | O_CLOEXEC;

// How many bytes of `path` are the platform's way. 0 for a relative path.
size_t way_length(const char* path) {
  if (path[0] != '/') return 0;
  for (const char* way : kPlatformWays) {
    const size_t length = strlen(way);
    if (strncmp(path, way, length) == 0 && (path[length] == '/' || path[length] == '\0')) {
      return length;
    }
  }
  return 1 + strcspn(path + 1, "/");
}

using Component = char[NAME_MAX + 1];

// Copies the next component of `*at` and moves behind it. False at the end; an over-long one is cut
// to "", which no directory has.
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

int open_way(const char* path, size_t length) {
  char way[64] = ".";
  if (length >= sizeof(way)) {
    errno = ENAMETOOLONG;
    return -1;
  }
  if (length > 0) {
    memcpy(way, path, length);
    way[length] = '\0';
  }
  return open(way, kDirectory);
}

// Opens the directory that `name`, the last component of `path`, lies in. A path that is nothing
// but the platform's way has "." as its last component. -1 with errno, ELOOP for a link.
int open_parent(const char* path, Component& name) {
  const size_t way = way_length(path);
  const char* at = path + way;
  Component following;
  const bool below = next_component(&at, name);
  if (!below && way > 0 && memchr(path + 1, '/', way - 1) == nullptr) {
    const char* first = path;  // a file directly below "/"
    const bool named = next_component(&first, name);
    if (!named) memcpy(name, ".", 2);
    return open("/", kDirectory);
  }
  ScopedFd dir(open_way(path, way));
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
  // Not blocking: a FIFO without a reader is refused here, one with a reader below.
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
  if (strspn(path + way_length(path), "/") == strlen(path + way_length(path))) return false;
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
