#include <dirent.h>
#include <errno.h>
#include <string.h>
#include <sys/stat.h>

#include "base/scoped.h"
#include "selflog/log.h"
#include "storage/size_monitor.h"

namespace {

constexpr char kLogSource[] = "utils";

bool is_directory(const char* dir, DIR* stream, const char* name) {
  struct stat info;
  if (fstatat(dirfd(stream), name, &info, 0) == 0) return S_ISDIR(info.st_mode);
  LOGE_AS("findOldestLogDir", "cannot open directory %s/%s: %s\n", dir, name, strerror(errno));
  return false;
}

}  // namespace

OldestRun findOldestLogDir(const char* dir) {
  OldestRun oldest;
  ScopedDir stream(opendir(dir));
  if (!stream.valid()) {
    oldest.count = -1;
    oldest.unknown = errno != ENOENT && errno != ENOTDIR;
    return oldest;
  }
  for (;;) {
    errno = 0;
    const dirent* entry = readdir(stream.get());
    if (entry == nullptr) break;
    const char* name = entry->d_name;
    if (strcmp(name, ".") == 0 || strcmp(name, "..") == 0) continue;
    if (is_directory(dir, stream.get(), name)) oldest.add(name);
  }
  oldest.unknown = errno != 0;
  return oldest;
}
