// Size of a tree as the quota counts it, for the daemon's size monitor and for the client.
#pragma once

#include <stdint.h>

#include <functional>
#include <string>

// Called with an entry that cannot be examined and errno; the entry is not counted.
using TreeTrouble = std::function<void(const std::string& path, int error)>;

// Bytes (st_size) of `path` and, when it is a directory, of everything below it: directories' own
// sizes count too. A link counts as its target:
//   - a directory that is inside itself through a link counts once on each path;
//   - a directory that several links lead to counts once for all of them, and once more where it
//     lies itself. Otherwise directories that link to each other would be walked along every path
//     there is.
// The trees of a move (model/move_trees.h) right below `path` are not looked at. Takes one stat
// for each entry, and one descriptor at a time. Writes `bytes`; false with errno, and nothing
// written, when `path` itself cannot be looked at. `trouble` may be null. A directory that cannot
// be listed counts with its own size only, silently.
bool tree_size(const std::string& path, const TreeTrouble& trouble, int64_t* bytes);
