// A directory tree as a list, and the way to each of its directories: by descriptors alone, so that
// no path is too long, no link is followed, and neither the stack nor the descriptors run out.
#pragma once

#include <stdint.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <string>
#include <vector>

#include "base/scoped.h"

struct TreeNode {
  size_t parent;  // index in the list
  size_t depth;
  std::string name;
  mode_t type;   // S_IFMT bits of st_mode
  int64_t size;  // st_size
};

// Node 0 is the directory that holds the tree, node 1 the tree's own file or directory; parents
// come before children.
using TreeList = std::vector<TreeNode>;
constexpr size_t kTreeTop = 1;

inline bool is_file(const TreeNode& node) {
  return S_ISREG(node.type);
}

// kPart: something could not be examined and is missing in the list. kNone: there is no such tree;
// the list has node 0 only. Files that vanish during the listing are ignored.
enum class Listing { kWhole, kPart, kNone };

// Lists the entry `name` of the directory `base` and all below it, one stat for each.
Listing list_tree(int base, const std::string& name, TreeList* tree);

// Opens directories of a listed tree, or of a copy of it.
class TreeCursor {
 public:
  // Makes a directory that is missing in the open directory `parent`; false with errno.
  using MakeDirectory = bool (*)(int parent, const char* name);

  // `base` and `tree` stay the caller's. `top` is what node 1 is called here.
  TreeCursor(int base, const TreeList& tree, std::string top, MakeDirectory make = nullptr);

  // The descriptor of the directory `node`, good until the next call; -1 with errno when it is not
  // there, or is no directory. Quick for nodes that are near each other.
  int at(size_t node);
  int at_parent(size_t node) { return at(tree_[node].parent); }

  const char* name(size_t node) const;

 private:
  struct Identity {
    dev_t dev;
    ino_t ino;
  };
  bool climb(size_t steps);
  bool descend(size_t node);

  const int base_;
  const TreeList& tree_;
  const std::string top_;
  const MakeDirectory make_;
  ScopedFd fd_;                // of `where_`; none for node 0
  size_t where_ = 0;           // a node
  std::vector<Identity> way_;  // the directories from node 0 down to `where_`
};

// What lies where a node's name leads to in another place.
constexpr int64_t kAbsent = -1;   // nothing, or something of another type
constexpr int64_t kUnknown = -2;  // could not be looked at

// The size of each node of `tree` (kAbsent, kUnknown), as it is found in the directory `base` when
// node 1 is called `top` there. One stat for each. The result has an item for every node.
std::vector<int64_t> sizes_at(int base, const std::string& top, const TreeList& tree);

// Removes what has the names of `tree` below `base`, where node 1 is called `top`; true when
// nothing of it is left.
bool remove_listed(int base, const std::string& top, const TreeList& tree);

// Whether errno says that there is nothing under a name.
bool is_absent(int error);

// A path as the directory that holds it and its last component; slashes at its end do not count.
struct SplitPath {
  std::string directory;
  std::string name;
};
SplitPath split(const std::string& path);
