// Sizes of trees, as they are and as they would be elsewhere.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "storage/tree.h"

// Whether `source` is a pattern "directory/*"; `dir` receives the directory with its slash.
bool pattern_directory(const char* source, std::string* dir);

// The full paths that the shell makes of a pattern "directory/*": all that is not hidden. Empty for
// anything else.
std::vector<std::string> pattern_entries(const char* source);

// `path`, or the nearest directory above it that exists.
std::string nearest_existing(std::string path);

// Bytes that `source` (a path, or "directory/*" for all that is not hidden in it) needs on a file
// system with blocks of `block_size` bytes: every file and directory rounded up, one block more for
// each entry. Links are not followed: a move takes them as they are. kSpaceUnknown, more than any
// file system has, when a part could not be examined.
constexpr int64_t kSpaceUnknown = INT64_MAX;
int64_t space_needed(const char* source, int64_t block_size);

// The same of a listed tree, and of the largest thing in it.
struct TreeRoom {
  int64_t bytes = 0;
  int64_t largest = 0;
};
TreeRoom room_for(const TreeList& tree, int64_t block_size);

// Whether there is room for a copy of `source` (as in space_needed()) and, where the copy lies on
// /data's storage, kDataReserve to spare; on a phone that is true of shared storage too. `target`
// need not exist yet. What takes nothing has room everywhere. `needed` and `available` receive
// bytes, of the copy and of the whole file system.
bool copy_has_room(const char* source, const char* target, int64_t* needed, int64_t* available);

// "no room to copy SOURCE to TARGET: N bytes needed, N free"; `action` is "copy" or "move".
std::string no_room_text(const char* action, const char* source, const char* target, int64_t needed,
                         int64_t available);
