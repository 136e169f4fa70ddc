// Names of the hidden trees beside what is being moved to another file system: a second name for
// every file (storage/linked_move.h).
#pragma once

#include <string_view>

constexpr std::string_view kLinkingPrefix = ".linking-";  // not complete yet
constexpr std::string_view kMovingPrefix = ".moving-";

// Whether an entry of the working area, or of another directory that is moved from, is such a tree.
// Its bytes are those of the run that it belongs to: they count there.
constexpr bool is_move_tree(std::string_view name) {
  return name.substr(0, kLinkingPrefix.size()) == kLinkingPrefix ||
         name.substr(0, kMovingPrefix.size()) == kMovingPrefix;
}
