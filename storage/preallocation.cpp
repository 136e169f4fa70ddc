#include "storage/preallocation.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include "base/scoped.h"
#include "model/data_room.h"
#include "model/paths.h"
#include "selflog/logcat_file.h"

namespace {

constexpr char kCaptureDir[] = "mobile";  // of a run: where its logcats write

// Opens the directory `name` in the directory `dir`, but follows no link.
DIR* open_below(int dir, const char* name) {
  ScopedFd fd(openat(dir, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  DIR* stream = fd.valid() ? fdopendir(fd.get()) : nullptr;
  if (stream != nullptr) fd.release();
  return stream;
}

// Calls `visit(dir, name, info)` for each regular file of `dir`.
template <typename Visit>
void each_file(DIR* dir, Visit visit) {
  while (const dirent* entry = readdir(dir)) {
    struct stat info;
    if (fstatat(dirfd(dir), entry->d_name, &info, AT_SYMLINK_NOFOLLOW) != 0) continue;
    if (S_ISREG(info.st_mode)) visit(dirfd(dir), entry->d_name, info);
  }
}

// The same for what the logcats of every run in the working area write.
template <typename Visit>
void each_captured_file(Visit visit) {
  ScopedDir runs(opendir(kWorkingDir));
  if (!runs.valid()) return;
  while (const dirent* entry = readdir(runs.get())) {
    if (entry->d_name[0] == '.') continue;
    ScopedDir run(open_below(dirfd(runs.get()), entry->d_name));
    if (!run.valid()) continue;
    ScopedDir captured(open_below(dirfd(run.get()), kCaptureDir));
    if (captured.valid()) each_file(captured.get(), visit);
  }
}

}  // namespace

int64_t preallocated_by_captures() {
  int64_t total = 0;
  each_captured_file(
      [&total](int, const char*, const struct stat& info) { total += preallocated(info); });
  return total;
}

void give_back_preallocation() {
  each_captured_file([](int dir, const char* name, const struct stat&) {
    trim_logcat_file(dir, name, TornLine::kKeep);
  });
  trim_logcat_file(AT_FDCWD, kCollectorFile, TornLine::kKeep);
}
