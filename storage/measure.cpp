#include "storage/measure.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/vfs.h>

#include <string>
#include <vector>

#include "base/scoped.h"
#include "selflog/log.h"
#include "storage/utils.h"

namespace {

constexpr char kLogSource[] = "utils";

// A directory of a walk. Its ancestors are found through `parent`, so that a link to one of them
// can be told without holding a descriptor for each level.
struct directory {
  std::string path;
  dev_t dev;
  ino_t ino;
  size_t parent;  // index; its own for the root
};

bool is_own_ancestor(const std::vector<directory>& seen, size_t parent, const struct stat& info) {
  for (size_t i = parent;; i = seen[i].parent) {
    if (seen[i].dev == info.st_dev && seen[i].ino == info.st_ino) return true;
    if (seen[i].parent == i) return false;
  }
}

// A directory that a link leads to.
struct linked_directory {
  dev_t dev;
  ino_t ino;
};

// True, once for each, for a directory that no link has led to so far. Without it directories that
// link to each other would be walked along every path there is.
bool is_new_link_target(std::vector<linked_directory>* linked, const struct stat& info) {
  for (const linked_directory& seen : *linked) {
    if (seen.dev == info.st_dev && seen.ino == info.st_ino) return false;
  }
  linked->push_back({info.st_dev, info.st_ino});
  return true;
}

// Whether the entry is a link; a file system that does not tell is asked.
bool is_link(DIR* stream, const dirent* entry) {
  if (entry->d_type != DT_UNKNOWN) return entry->d_type == DT_LNK;
  struct stat info;
  return fstatat(dirfd(stream), entry->d_name, &info, AT_SYMLINK_NOFOLLOW) == 0 &&
         S_ISLNK(info.st_mode);
}

bool is_dot(const char* name) {
  return strcmp(name, ".") == 0 || strcmp(name, "..") == 0;
}

// Another moment may succeed where this one fails.
bool is_short_of_resources(int error) {
  return error == EMFILE || error == ENFILE || error == ENOMEM;
}

// Calls `visit(info)` for everything below the directory `root`, whose own `info` is given.
// `stat_flags`: 0 follows links, AT_SYMLINK_NOFOLLOW does not. One stat for each entry, relative to
// its open directory. Failures are logged under the name `function`. False when a directory was
// passed over for want of a descriptor or memory.
template <typename Visit>
bool walk_below(const char* function, const char* root, const struct stat& root_info,
                int stat_flags, Visit visit) {
  std::vector<directory> seen;
  seen.push_back({root, root_info.st_dev, root_info.st_ino, 0});
  std::vector<linked_directory> linked;
  bool complete = true;
  for (size_t i = 0; i < seen.size(); i++) {
    const std::string path = std::move(seen[i].path);
    scoped_dir stream(opendir(path.c_str()));
    if (!stream.valid()) {
      complete = complete && !is_short_of_resources(errno);
      continue;
    }
    while (const dirent* entry = readdir(stream.get())) {
      if (is_dot(entry->d_name)) continue;
      struct stat info;
      if (fstatat(dirfd(stream.get()), entry->d_name, &info, stat_flags) != 0) {
        LOG_AS(ANDROID_LOG_ERROR, function, "cannot open directory %s: %s\n",
               (path + "/" + entry->d_name).c_str(), strerror(errno));
        continue;
      }
      if (S_ISDIR(info.st_mode)) {
        if (is_own_ancestor(seen, i, info)) continue;
        if (is_link(stream.get(), entry) && !is_new_link_target(&linked, info)) continue;
        seen.push_back({path + "/" + entry->d_name, info.st_dev, info.st_ino, i});
      }
      visit(info);
    }
  }
  return complete;
}

int64_t rounded_up(const struct stat& info, int64_t block_size) {
  return (info.st_size + block_size - 1) / block_size * block_size + block_size;
}

int64_t tree_space(const char* path, int64_t block_size) {
  struct stat root;
  if (lstat(path, &root) != 0) return 0;
  int64_t total = rounded_up(root, block_size);
  if (S_ISDIR(root.st_mode) &&
      !walk_below("space_needed", path, root, AT_SYMLINK_NOFOLLOW,
                  [&](const struct stat& info) { total += rounded_up(info, block_size); })) {
    return kSpaceUnknown;
  }
  return total;
}

// The file system on which `path` is or will be made.
bool statfs_nearest(std::string path, struct statfs* info) {
  while (statfs(path.c_str(), info) != 0) {
    const size_t slash = path.find_last_of('/');
    if (errno != ENOENT || slash == std::string::npos || path.size() == 1) return false;
    path.resize(slash == 0 ? 1 : slash);
  }
  return true;
}

}  // namespace

int64_t getFileSize(const char* path) {
  struct stat root;
  if (stat(path, &root) != 0) {
    LOGE("stat file %s error: %s\n", path, strerror(errno));
    return 0;
  }
  int64_t total = root.st_size;
  if (S_ISDIR(root.st_mode)) {
    walk_below(__func__, path, root, 0, [&](const struct stat& info) { total += info.st_size; });
  }
  return total;
}

int64_t get_filesystem_size(const char* path) {
  if (path == nullptr) {
    LOGE("Failed to get storage size with null path");
    return -1;
  }
  struct statfs info;
  if (statfs(path, &info) != 0 || info.f_blocks == 0) {
    LOGE("Failed to get %s storage size", path);
    return -2;
  }
  return static_cast<int64_t>(info.f_bsize) * static_cast<int64_t>(info.f_bavail);
}

bool pattern_directory(const char* source, std::string* dir) {
  const size_t length = strlen(source);
  if (length < 2 || strcmp(source + length - 2, "/*") != 0) return false;
  dir->assign(source, length - 1);
  return true;
}

std::vector<std::string> pattern_entries(const char* source) {
  std::string dir;
  std::vector<std::string> entries;
  if (!pattern_directory(source, &dir)) return entries;
  scoped_dir stream(opendir(dir.c_str()));
  if (!stream.valid()) return entries;
  while (const dirent* entry = readdir(stream.get())) {
    if (entry->d_name[0] != '.') entries.push_back(dir + entry->d_name);
  }
  return entries;
}

int64_t space_needed(const char* source, int64_t block_size) {
  std::string dir;
  if (!pattern_directory(source, &dir)) return tree_space(source, block_size);
  int64_t total = 0;
  for (const std::string& entry : pattern_entries(source)) {
    const int64_t space = tree_space(entry.c_str(), block_size);
    if (space == kSpaceUnknown) return kSpaceUnknown;
    total += space;
  }
  return total;
}

bool copy_has_room(const char* source, const char* target, int64_t* needed, int64_t* available) {
  struct statfs room;
  if (!statfs_nearest(target, &room)) return true;  // the command will say so
  *needed = space_needed(source, static_cast<int64_t>(room.f_bsize));
  *available = static_cast<int64_t>(room.f_bsize) * static_cast<int64_t>(room.f_bavail);
  return *needed <= *available;
}

bool move_has_room(const char* source, const char* target, int64_t* needed, int64_t* available) {
  std::string dir;
  if (!pattern_directory(source, &dir)) dir = source;
  struct stat from;
  struct stat to;
  if (stat(dir.c_str(), &from) != 0 || stat(target, &to) != 0) return true;  // mv will say so
  return from.st_dev == to.st_dev || copy_has_room(source, target, needed, available);
}
