#include "storage/measure.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/vfs.h>

#include <algorithm>
#include <string>
#include <vector>

#include "base/scoped.h"
#include "base/text.h"
#include "model/data_room.h"
#include "model/tree_size.h"
#include "selflog/log.h"
#include "storage/preallocation.h"
#include "storage/utils.h"

namespace {

constexpr char kLogSource[] = "utils";

int64_t tree_space(const char* path, int64_t block_size) {
  const SplitPath parts = split(path);
  const ScopedFd base(open(parts.directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!base.valid()) return is_absent(errno) ? 0 : kSpaceUnknown;
  TreeList tree;
  const Listing found = list_tree(base.get(), parts.name, &tree);
  return found == Listing::kPart ? kSpaceUnknown : room_for(tree, block_size).bytes;
}

}  // namespace

std::string nearest_existing(std::string path) {
  struct stat info;
  while (stat(path.c_str(), &info) != 0 && errno == ENOENT && path.size() > 1) {
    const size_t slash = path.find_last_of('/');
    if (slash == std::string::npos) break;
    path.resize(slash == 0 ? 1 : slash);
  }
  return path;
}

int64_t getFileSize(const char* path) {
  int64_t bytes = 0;
  const auto trouble = [](const std::string& entry, int error) {
    LOGE_AS("getFileSize", "cannot open directory %s: %s\n", entry.c_str(), strerror(error));
  };
  if (!tree_size(path, trouble, &bytes)) LOGE("stat file %s error: %s\n", path, strerror(errno));
  return bytes;
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
  ScopedDir stream(opendir(dir.c_str()));
  if (!stream.valid()) return entries;
  while (const dirent* entry = readdir(stream.get())) {
    if (entry->d_name[0] != '.') entries.push_back(dir + entry->d_name);
  }
  return entries;
}

TreeRoom room_for(const TreeList& tree, int64_t block_size) {
  TreeRoom room;
  for (size_t i = kTreeTop; i < tree.size(); i++) {
    const int64_t blocks = (tree[i].size + block_size - 1) / block_size + 1;
    room.bytes += blocks * block_size;
    room.largest = std::max(room.largest, blocks * block_size);
  }
  return room;
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
  const std::string place = nearest_existing(target);
  struct statfs room;
  if (statfs(place.c_str(), &room) != 0) return true;  // the command will say so
  *needed = space_needed(source, static_cast<int64_t>(room.f_bsize));
  *available = static_cast<int64_t>(room.f_bsize) * static_cast<int64_t>(room.f_bavail);
  // What cannot be looked at here cannot be read by cp either.
  if (*needed == kSpaceUnknown) return true;
  return copy_fits(*needed, *available, lies_on_data(place), preallocated_by_captures());
}

std::string no_room_text(const char* action, const char* source, const char* target, int64_t needed,
                         int64_t available) {
  char figures[64];
  format_cut(figures, ": %lld bytes needed, %lld free", static_cast<long long>(needed),
             static_cast<long long>(available));
  std::string text = "no room to ";
  for (const char* part : {action, " ", source, " to ", target, static_cast<const char*>(figures)})
    text += part;
  return text;
}
