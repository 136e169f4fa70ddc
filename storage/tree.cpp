#include "storage/tree.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>

#include <utility>

namespace {

constexpr int kDirectory = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
constexpr size_t kMostSteps = 1000;  // "../" each; the kernel takes paths of 4095 bytes

// Adds the entries of the directory `node`; false when some could not be examined.
bool add_children(int fd, size_t node, TreeList* tree, std::vector<size_t>* pending) {
  ScopedFd own(openat(fd, ".", kDirectory));  // a stream moves its descriptor's position
  ScopedDir stream(own.valid() ? fdopendir(own.get()) : nullptr);
  if (!stream.valid()) return is_absent(errno);
  own.release();
  bool whole = true;
  const size_t depth = (*tree)[node].depth + 1;
  for (;;) {
    errno = 0;
    const dirent* entry = readdir(stream.get());
    if (entry == nullptr) return whole && errno == 0;
    if (strcmp(entry->d_name, ".") == 0 || strcmp(entry->d_name, "..") == 0) continue;
    struct stat info;
    if (fstatat(fd, entry->d_name, &info, AT_SYMLINK_NOFOLLOW) != 0) {
      whole = whole && is_absent(errno);
      continue;
    }
    if (S_ISDIR(info.st_mode)) pending->push_back(tree->size());
    tree->push_back({node, depth, entry->d_name, info.st_mode & S_IFMT, info.st_size});
  }
}

}  // namespace

bool is_absent(int error) {
  return error == ENOENT || error == ENOTDIR || error == ELOOP;
}

Listing list_tree(int base, const std::string& name, TreeList* tree) {
  *tree = {{0, 0, "", S_IFDIR, 0}};
  struct stat info;
  if (fstatat(base, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) {
    return is_absent(errno) ? Listing::kNone : Listing::kPart;
  }
  tree->push_back({0, 1, name, info.st_mode & S_IFMT, info.st_size});
  std::vector<size_t> pending;
  if (S_ISDIR(info.st_mode)) pending.push_back(kTreeTop);
  bool whole = true;
  TreeCursor cursor(base, *tree, name);
  while (!pending.empty()) {
    const size_t node = pending.back();
    pending.pop_back();
    const int fd = cursor.at(node);
    whole = (fd == -1 ? is_absent(errno) : add_children(fd, node, tree, &pending)) && whole;
  }
  return whole ? Listing::kWhole : Listing::kPart;
}

TreeCursor::TreeCursor(int base, const TreeList& tree, std::string top, MakeDirectory make)
    : base_(base), tree_(tree), top_(std::move(top)), make_(make), way_{{0, 0}} {}

const char* TreeCursor::name(size_t node) const {
  return node == kTreeTop ? top_.c_str() : tree_[node].name.c_str();
}

int TreeCursor::at(size_t node) {
  // From here up to the nearest directory that is above both, and down again.
  std::vector<size_t> down;
  size_t to = node;
  size_t from = where_;
  size_t steps = 0;
  while (tree_[to].depth > tree_[from].depth) {
    down.push_back(to);
    to = tree_[to].parent;
  }
  while (from != to) {
    if (tree_[from].depth == tree_[to].depth) {
      down.push_back(to);
      to = tree_[to].parent;
    }
    from = tree_[from].parent;
    steps++;
  }
  if (steps != 0 && !climb(steps)) return at(node);  // once: it starts at the base now
  for (; !down.empty(); down.pop_back()) {
    if (!descend(down.back())) return -1;
  }
  return where_ == 0 ? base_ : fd_.get();
}

// Goes `steps` directories up. False, at the base, when that is another directory than the one we
// came from: it was moved meanwhile, and must not be changed.
bool TreeCursor::climb(size_t steps) {
  const size_t depth = way_.size() - 1 - steps;
  if (depth != 0 && steps <= kMostSteps) {
    std::string up;
    for (size_t i = 0; i < steps; i++) up += "../";
    ScopedFd fd(openat(fd_.get(), up.c_str(), kDirectory));
    struct stat info;
    if (fd.valid() && fstat(fd.get(), &info) == 0 && info.st_dev == way_[depth].dev &&
        info.st_ino == way_[depth].ino) {
      for (size_t i = 0; i < steps; i++) where_ = tree_[where_].parent;
      fd_.reset(fd.release());
      way_.resize(depth + 1);
      return true;
    }
  }
  fd_.reset();
  where_ = 0;
  way_.resize(1);
  return depth == 0;
}

bool TreeCursor::descend(size_t node) {
  const int parent = where_ == 0 ? base_ : fd_.get();
  ScopedFd fd(openat(parent, name(node), kDirectory));
  if (!fd.valid() && errno == ENOENT && make_ != nullptr && make_(parent, name(node))) {
    fd.reset(openat(parent, name(node), kDirectory));
  }
  struct stat info;
  if (!fd.valid() || fstat(fd.get(), &info) != 0) return false;
  fd_.reset(fd.release());
  where_ = node;
  way_.push_back({info.st_dev, info.st_ino});
  return true;
}

std::vector<int64_t> sizes_at(int base, const std::string& top, const TreeList& tree) {
  std::vector<int64_t> sizes(tree.size(), 0);
  TreeCursor cursor(base, tree, top);
  for (size_t i = kTreeTop; i < tree.size(); i++) {
    const int fd = cursor.at_parent(i);
    struct stat info;
    if (fd == -1 || fstatat(fd, cursor.name(i), &info, AT_SYMLINK_NOFOLLOW) != 0) {
      sizes[i] = is_absent(errno) ? kAbsent : kUnknown;
    } else {
      sizes[i] = (info.st_mode & S_IFMT) == tree[i].type ? info.st_size : kAbsent;
    }
  }
  return sizes;
}

bool remove_listed(int base, const std::string& top, const TreeList& tree) {
  bool gone = true;
  TreeCursor cursor(base, tree, top);
  for (size_t i = tree.size() - 1; i >= kTreeTop; i--) {
    const int fd = cursor.at_parent(i);
    const int flags = S_ISDIR(tree[i].type) ? AT_REMOVEDIR : 0;
    if (fd == -1 || unlinkat(fd, cursor.name(i), flags) != 0) gone = is_absent(errno) && gone;
  }
  return gone;
}

SplitPath split(const std::string& path) {
  const size_t last = path.find_last_not_of('/');
  const std::string whole = path.substr(0, last == std::string::npos ? 0 : last + 1);
  const size_t slash = whole.find_last_of('/');
  if (slash == std::string::npos) return {".", whole};
  return {slash == 0 ? "/" : whole.substr(0, slash), whole.substr(slash + 1)};
}
