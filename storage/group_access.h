// Root without CAP_DAC_OVERRIDE can neither read what belongs to the system user alone, such as the
// traces of an application that did not respond (0600), nor empty a directory of that user (0700).
// It may change modes (CAP_FOWNER), and it is in the group system.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

enum class GroupAccess {
  kRead,    // regular files; directories can be listed and searched
  kRemove,  // directories can be emptied
};

// Gives this process's groups access to a tree for as long as the object lives: regular files and
// directories of the user system get the group's bits that are missing. Links are not followed. One
// error line for each file that stays inaccessible. The destructor restores the modes of files that
// were not changed or replaced meanwhile; a process that is killed before leaves the group bits
// set. Any process.
class ScopedGroupAccess {
 public:
  // `tree`: a path, or "directory/*"; one that is missing is no error.
  ScopedGroupAccess(const char* tree, GroupAccess access);
  ScopedGroupAccess(const ScopedGroupAccess&) = delete;
  ScopedGroupAccess& operator=(const ScopedGroupAccess&) = delete;
  ~ScopedGroupAccess();

 private:
  struct Change {
    std::string path;
    dev_t device;
    ino_t inode;
    mode_t before, after;
  };

  void visit(int parent, const char* name, const std::string& path);

  const GroupAccess access_;
  std::vector<Change> changes_;  // a directory before what is in it
};
