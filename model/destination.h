// Where root may copy to when a client names the place. The copy is made world-accessible.
#pragma once

#include <sys/types.h>

#include <string_view>
#include <utility>
#include <vector>

// Device and inode: one file, whatever its name.
using FileIdentity = std::pair<dev_t, ino_t>;

// What is not in the text of a destination. A client, which cannot know it, uses the default.
struct DestinationFacts {
  std::vector<std::string_view> sources;      // directories that are copied, deleted or cleared
  std::vector<FileIdentity> source_ids;       // theirs, in every place where they can be seen
  std::vector<FileIdentity> destination_ids;  // of the destination and the directories above it
  bool is_trap = false;  // a symbolic link or no directory is in the way (base/beneath.h)
  bool fits = true;      // into each command that it becomes part of
};

// Why the destination `path` is refused; null when it may be used. It must be absolute, at least
// two components deep, without "." and "..", without control bytes, and not a source nor below one:
// cp would copy a directory into itself without end.
const char* judge_destination(std::string_view path, const DestinationFacts& facts);
