// Where a logger type puts its files.
#pragma once

#include <stddef.h>

#include "base/text.h"
#include "storage/utils.h"

constexpr size_t kPathSize = 256;  // of a path that a start routine puts together

// Makes the directory <log_dir>/<name>, with its parents, and puts its path into `dir`. A path that
// is too long ends the process; a directory that cannot be made is logged, and later writes fail.
inline void make_type_dir(char (&dir)[kPathSize], const char* log_dir, const char* name) {
  copy_or_abort(dir, log_dir);
  append_or_abort(dir, "/");
  append_or_abort(dir, name);
  creat_dir(dir);
}
