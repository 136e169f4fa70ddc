// Bringing what was written onto storage before its other copy is given up.
#pragma once

#include <string>

#include "base/scoped.h"

// A flush that takes longer has failed: the storage hangs, or is slower than any phone's.
constexpr int kFlushMs = 60 * 1000;

// Writes back all of the file system of `path`, in a child that is given kFlushMs. For shared
// storage, whose own file system does not pass the request on, that is the one of /data/media/0.
// Returns "" when it is done, or why it is not.
std::string flush_storage(const char* path);

// Held while files have their second names: another process that crashes the kernel on purpose can
// wait for that. It goes with the last process that inherited it, so also a flush that was given up
// counts while it runs.
class MoveLock {
 public:
  MoveLock();

 private:
  ScopedFd fd_;
};

// Whether a process holds the lock: files have second names then, which hold their room.
bool is_move_under_way();

// Waits until no process holds the lock, kFlushMs at most.
void wait_for_moves();
