#include "storage/group_access.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "base/beneath.h"
#include "base/scoped.h"
#include "selflog/log.h"
#include "storage/measure.h"

namespace {

constexpr char kLogSource[] = "utils";
constexpr uid_t kSystemUser = 1000;  // AID_SYSTEM

// The file of an O_PATH descriptor as a name. access() and chmod() follow it to that very file,
// whatever its path leads to by now; fchmod() fails with such a descriptor.
std::string handle_of(int fd) {
  return "/proc/self/fd/" + std::to_string(fd);
}

bool is_our_group(gid_t group) {
  if (group == getegid()) return true;
  std::vector<gid_t> groups(static_cast<size_t>(std::max(getgroups(0, nullptr), 0)));
  const int count = getgroups(static_cast<int>(groups.size()), groups.data());
  return count > 0 && std::find(groups.begin(), groups.end(), group) != groups.end();
}

}  // namespace

ScopedGroupAccess::ScopedGroupAccess(const char* tree, GroupAccess access) : access_(access) {
  std::string root;
  if (!pattern_directory(tree, &root)) root = tree;
  if (!is_trap(root.c_str())) visit(AT_FDCWD, root.c_str(), root);
}

ScopedGroupAccess::~ScopedGroupAccess() {
  // A directory after what is in it: the paths below it need its bits.
  for (auto changed = changes_.rbegin(); changed != changes_.rend(); ++changed) {
    const ScopedFd fd(open(changed->path.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat now;
    const bool same = fd.valid() && fstat(fd.get(), &now) == 0 && now.st_dev == changed->device &&
                      now.st_ino == changed->inode && now.st_mode == changed->after;
    if (same && chmod(handle_of(fd.get()).c_str(), changed->before & 07777) != 0) {
      LOGE_AS("scoped_group_access", "cannot give %s its mode %o again: %s", changed->path.c_str(),
              changed->before & 07777, strerror(errno));
    }
  }
}

// `path` is for the log and for putting the mode back; the way is from directory to directory.
void ScopedGroupAccess::visit(int parent, const char* name, const std::string& path) {
  const ScopedFd fd(openat(parent, name, O_PATH | O_NOFOLLOW | O_CLOEXEC));
  struct stat info;
  if (!fd.valid() || fstat(fd.get(), &info) != 0) return;
  if (!S_ISDIR(info.st_mode) && (!S_ISREG(info.st_mode) || access_ == GroupAccess::kRemove)) return;
  const std::string handle = handle_of(fd.get());
  const bool removes = access_ == GroupAccess::kRemove;
  const int wanted = !S_ISDIR(info.st_mode) ? R_OK : removes ? R_OK | W_OK | X_OK : R_OK | X_OK;
  if (access(handle.c_str(), wanted) != 0) {
    const mode_t bits = static_cast<mode_t>(wanted) << 3;  // R_OK and S_IRGRP, and so on
    const bool may = info.st_uid == kSystemUser && is_our_group(info.st_gid);
    if (may && chmod(handle.c_str(), (info.st_mode | bits) & 07777) == 0)
      changes_.push_back({path, info.st_dev, info.st_ino, info.st_mode, info.st_mode | bits});
    if (access(handle.c_str(), wanted) != 0) {
      LOGE_AS("scoped_group_access", "cannot %s %s (%04o, owner %u:%u): %s",
              removes ? "empty" : "read", path.c_str(), info.st_mode & 07777, info.st_uid,
              info.st_gid, strerror(errno));
      return;
    }
  }
  if (!S_ISDIR(info.st_mode)) return;
  const ScopedDir stream(opendir(handle.c_str()));
  while (const dirent* entry = stream.valid() ? readdir(stream.get()) : nullptr) {
    if (strcmp(entry->d_name, ".") == 0 || strcmp(entry->d_name, "..") == 0) continue;
    visit(fd.get(), entry->d_name, path + "/" + entry->d_name);
  }
}
