#include "storage/copied.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "base/scoped.h"
#include "selflog/log.h"
#include "storage/flush.h"
#include "storage/measure.h"
#include "storage/tree.h"

namespace {

constexpr char kLogSource[] = "utils";
constexpr size_t kCompared = 64 * 1024;  // bytes at a time

// A listed path, and where it is looked for.
struct PairOfTrees {
  TreeList tree;
  ScopedFd source;   // the directory that holds the path
  ScopedFd place;    // the directory that holds the other one
  std::string name;  // of the other one there
};

Listing open_pair(const std::string& source, const std::string& place, PairOfTrees* pair) {
  constexpr int kDirectory = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
  const SplitPath from = split(source);
  const SplitPath to = split(place);
  pair->name = to.name;
  pair->source.reset(open(from.directory.c_str(), kDirectory));
  if (!pair->source.valid()) return is_absent(errno) ? Listing::kNone : Listing::kPart;
  pair->place.reset(open(to.directory.c_str(), kDirectory));
  return list_tree(pair->source.get(), from.name, &pair->tree);
}

enum class Copy { kNoSource, kWhole, kPart };  // the worst last

Copy look_at_copy(const std::string& source, const std::string& place) {
  PairOfTrees pair;
  const Listing found = open_pair(source, place, &pair);
  if (found != Listing::kWhole) return found == Listing::kNone ? Copy::kNoSource : Copy::kPart;
  const std::vector<int64_t> sizes = sizes_at(pair.place.get(), pair.name, pair.tree);
  for (size_t i = kTreeTop; i < pair.tree.size(); i++) {
    const bool there = is_file(pair.tree[i]) ? sizes[i] == pair.tree[i].size : sizes[i] >= 0;
    if (!there) return Copy::kPart;
  }
  return Copy::kWhole;
}

ScopedFd open_file(int directory, const char* name) {
  return ScopedFd(openat(directory, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
}

bool have_same_bytes(const ScopedFd& a, const ScopedFd& b) {
  std::vector<char> one(kCompared);
  std::vector<char> other(kCompared);
  for (off_t at = 0; a.valid() && b.valid();) {
    const ssize_t got = pread(a.get(), one.data(), kCompared, at);
    if (got < 0 || pread(b.get(), other.data(), kCompared, at) != got) return false;
    if (got == 0) return true;
    if (memcmp(one.data(), other.data(), static_cast<size_t>(got)) != 0) return false;
    at += got;
  }
  return false;
}

}  // namespace

std::string place_of_copy(const char* source, const char* target) {
  struct stat info;
  if (stat(target, &info) != 0 || !S_ISDIR(info.st_mode)) return target;
  return std::string(target) + "/" + split(source).name;
}

bool is_copied(const char* source, const char* place) {
  Copy state = Copy::kNoSource;
  std::string dir;
  if (pattern_directory(source, &dir)) {
    for (const std::string& entry : pattern_entries(source)) {
      const std::string there = std::string(place) + "/" + split(entry).name;
      state = std::max(state, look_at_copy(entry, there));
    }
  } else {
    state = look_at_copy(source, place);
  }
  if (state == Copy::kNoSource) return true;
  const bool whole = state == Copy::kWhole;
  const std::string trouble = whole ? flush_storage(split(place).directory.c_str()) : "";
  if (whole && trouble.empty()) return true;
  LOGE("not all of %s is in %s, it stays%s%s", source, place, whole ? ": " : "", trouble.c_str());
  return false;
}

bool is_taken(const char* source, const char* place) {
  for (const std::string& entry : pattern_entries(source)) {
    PairOfTrees pair;
    const Listing found = open_pair(entry, std::string(place) + "/" + split(entry).name, &pair);
    if (found == Listing::kPart) return true;
    if (found == Listing::kNone) continue;
    TreeCursor mine(pair.source.get(), pair.tree, pair.tree[kTreeTop].name);
    TreeCursor there(pair.place.get(), pair.tree, pair.name);
    for (size_t i = kTreeTop; i < pair.tree.size(); i++) {
      const int fd = there.at_parent(i);
      struct stat info;
      if (fd == -1 || fstatat(fd, there.name(i), &info, AT_SYMLINK_NOFOLLOW) != 0) {
        if (!is_absent(errno) || errno == ENOTDIR) return true;
        continue;
      }
      const bool same_type = (info.st_mode & S_IFMT) == pair.tree[i].type;
      if (same_type && S_ISDIR(info.st_mode)) continue;
      const int from = mine.at_parent(i);
      if (!same_type || !is_file(pair.tree[i]) || from == -1 ||
          !have_same_bytes(open_file(from, mine.name(i)), open_file(fd, there.name(i)))) {
        return true;
      }
    }
  }
  return false;
}
