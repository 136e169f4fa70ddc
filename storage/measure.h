// Sizes of trees, as they are and as they would be elsewhere.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

// Whether `source` is a pattern "directory/*"; `dir` receives the directory with its slash.
bool pattern_directory(const char* source, std::string* dir);

// The full paths that the shell makes of a pattern "directory/*": all that is not hidden. Empty for
// anything else.
std::vector<std::string> pattern_entries(const char* source);

// Bytes that `source` (a path, or "directory/*" for all that is not hidden in it) needs on a file
// system with blocks of `block_size` bytes: every file and directory rounded up, one block more for
// each entry. Links are not followed: a move takes them as they are. kSpaceUnknown, for which no
// file system has room, when a part could not be looked at for want of a descriptor or memory.
constexpr int64_t kSpaceUnknown = INT64_MAX;
int64_t space_needed(const char* source, int64_t block_size);

// Whether a move of `source` into the directory `target` can hold: true also when both are on one
// file system. `needed` and `available` receive bytes when it cannot.
bool move_has_room(const char* source, const char* target, int64_t* needed, int64_t* available);

// The same for a copy, which takes room on its own file system too. `target` need not exist yet.
bool copy_has_room(const char* source, const char* target, int64_t* needed, int64_t* available);
