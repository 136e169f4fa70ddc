// Checks a copy before its source is deleted.
#pragma once

#include <string>

// Where `cp -a source target` puts the source: below `target` when that is a directory by now,
// otherwise `target` itself. Call it before the copy.
std::string place_of_copy(const char* source, const char* target);

// Whether every file and directory of `source` (a path, or "directory/*") is in `place` with its
// name and size, written back onto storage. `place` is the copy of the path, or the directory with
// the copies of what the pattern names. True for a missing source. False after one error line: the
// source must stay.
bool is_copied(const char* source, const char* place);

// Whether a copy of what the pattern `source` names into the directory `place` would write over
// something: a name that is there already with another content, or that cannot be compared.
bool is_taken(const char* source, const char* place);
