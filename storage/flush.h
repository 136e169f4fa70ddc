// Flushes a copy to storage before the original is deleted.
#pragma once

#include <string>

#include "base/scoped.h"

// A flush that takes longer has failed: the storage hangs.
constexpr int kFlushMs = 60 * 1000;

// Writes back all of the file system of `path`, in a child that is given kFlushMs. For shared
// storage, whose own file system does not pass the request on, that is the one of /data/media/0.
// Returns "" when it is done, or why it is not.
std::string flush_storage(const char* path);

// Held while files have second names: the watchdog waits for it before it crashes the kernel.
// Released when the last process that inherited it ends, so a flush that was given up still counts
// while it runs.
class MoveLock {
 public:
  MoveLock();

 private:
  ScopedFd fd_;
};

// Whether a process holds the lock. Files with second names free no space when one name is removed.
bool is_move_under_way();

// Waits until no process holds the lock, kFlushMs at most.
void wait_for_moves();
