#include "model/tree_size.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>

#include <utility>
#include <vector>

#include "base/scoped.h"
#include "model/move_trees.h"

namespace {

// A directory of a walk. `parent` finds its ancestors, so that a link to one of them is recognised
// without an open descriptor for each level.
struct Directory {
  std::string path;
  dev_t dev;
  ino_t ino;
  size_t parent;  // index; its own for the root
};

bool is_own_ancestor(const std::vector<Directory>& seen, size_t parent, const struct stat& info) {
  for (size_t i = parent;; i = seen[i].parent) {
    if (seen[i].dev == info.st_dev && seen[i].ino == info.st_ino) return true;
    if (seen[i].parent == i) return false;
  }
}

// A directory that a link leads to.
struct LinkedDirectory {
  dev_t dev;
  ino_t ino;
};

// True the first time a symlink leads to this directory.
bool is_new_link_target(std::vector<LinkedDirectory>* linked, const struct stat& info) {
  for (const LinkedDirectory& seen : *linked) {
    if (seen.dev == info.st_dev && seen.ino == info.st_ino) return false;
  }
  linked->push_back({info.st_dev, info.st_ino});
  return true;
}

// Whether the entry is a link; lstat() where the file system has no d_type.
bool is_link(DIR* stream, const dirent* entry) {
  if (entry->d_type != DT_UNKNOWN) return entry->d_type == DT_LNK;
  struct stat info;
  return fstatat(dirfd(stream), entry->d_name, &info, AT_SYMLINK_NOFOLLOW) == 0 &&
         S_ISLNK(info.st_mode);
}

bool is_dot(const char* name) {
  return strcmp(name, ".") == 0 || strcmp(name, "..") == 0;
}

int64_t size_below(const std::string& root, const struct stat& root_info,
                   const TreeTrouble& trouble) {
  std::vector<Directory> seen;
  seen.push_back({root, root_info.st_dev, root_info.st_ino, 0});
  std::vector<LinkedDirectory> linked;
  int64_t total = 0;
  for (size_t i = 0; i < seen.size(); i++) {
    const std::string path = std::move(seen[i].path);
    ScopedDir stream(opendir(path.c_str()));
    if (!stream.valid()) continue;
    while (const dirent* entry = readdir(stream.get())) {
      if (is_dot(entry->d_name) || (i == 0 && is_move_tree(entry->d_name))) continue;
      struct stat info;
      if (fstatat(dirfd(stream.get()), entry->d_name, &info, 0) != 0) {
        if (trouble) trouble(path + "/" + entry->d_name, errno);
        continue;
      }
      if (S_ISDIR(info.st_mode)) {
        if (is_own_ancestor(seen, i, info)) continue;
        if (is_link(stream.get(), entry) && !is_new_link_target(&linked, info)) continue;
        seen.push_back({path + "/" + entry->d_name, info.st_dev, info.st_ino, i});
      }
      total += info.st_size;
    }
  }
  return total;
}

}  // namespace

bool tree_size(const std::string& path, const TreeTrouble& trouble, int64_t* bytes) {
  struct stat root;
  if (stat(path.c_str(), &root) != 0) return false;
  *bytes = root.st_size + (S_ISDIR(root.st_mode) ? size_below(path, root, trouble) : 0);
  return true;
}
