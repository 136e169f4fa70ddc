// Moves to another file system that lose nothing.
//
// mv across file systems removes its source even when the target filled up on the way, and a kill
// or a power cut in the middle leaves half a file. So every file gets a second name first, in a
// hidden tree of hard links beside the source; then the command runs; and only when every file is
// known to be at the target, written back, are the links dropped. What is missing gets its name in
// the source again. What lies beside a source NAME tells how far it came:
//
//   neither         no move is under way
//   .linking-NAME   the links are being made; NAME is whole. The next settling removes it.
//   .moving-NAME    every file has its second name; the command may have run. The next settling
//                   compares, flushes, puts back what is missing, flushes that, removes what is
//                   too short at the target, and drops the tree.
//
// Every step can be repeated: none gives up a file's last name. The main process alone makes and
// settles links; the size monitor moves to make room, and links would keep the room in use. Code
// that deletes a run on purpose must remove its trees too (remove_move_trees()).
#pragma once

#include <stdint.h>

#include <memory>
#include <string>
#include <vector>

#include "base/scoped.h"
#include "storage/flush.h"
#include "storage/measure.h"
#include "storage/tree.h"

// ---- The decisions, as functions over values. ----

struct MoveFacts {
  bool one_pool;      // source and target share their storage: links hold the space that mv frees
  bool can_link;      // links may be made, and were not refused so far
  bool tree_fits;     // all of it, where it is; in one pool beside itself with 128 MiB to spare
  bool largest_fits;  // the largest file, with 128 MiB to spare
};
enum class MoveWay {
  kWithLinks,  // links, the command, the comparison
  kBare,       // the command alone: nothing crosses, or links would take the room that it needs
  kStays,      // not now
};
constexpr MoveWay judge_move(const MoveFacts& facts) {
  if (facts.tree_fits && facts.can_link) return MoveWay::kWithLinks;
  const bool runs = facts.one_pool ? facts.largest_fits : facts.tree_fits;
  return runs ? MoveWay::kBare : MoveWay::kStays;
}

enum class Arrival {
  kNone,      // has no link: it was gone before the command, or is settled
  kComplete,  //
  kGrown,     // arrived as it was when the command began; its writer went on
  kMissing,   // absent, shorter, or not known
};
// Sizes: at the start of the command, of the link now, at the target; kAbsent and kUnknown too.
constexpr Arrival judge_arrival(int64_t at_start, int64_t now, int64_t there) {
  if (now == kAbsent) return Arrival::kNone;
  if (now == kUnknown || there < 0) return Arrival::kMissing;
  if (there >= now) return Arrival::kComplete;
  return there >= at_start ? Arrival::kGrown : Arrival::kMissing;
}

// ---- The move. ----

// One move of `source` (a path, or "directory/*") into the directory `target`:
//   LinkedMove move(source, target);
//   if (move.prepare() != MoveWay::kStays) run the command, then move.settle();
class LinkedMove {
 public:
  LinkedMove(const char* source, const char* target);

  // Settles what an earlier move has left, measures the source and the free space, and makes the
  // links if it uses them. A name whose links cannot be made (EMLINK, ENAMETOOLONG, an earlier tree
  // that could not be settled) moves without links, the others keep theirs: one warning names the
  // first. kBare within one file system; kStays for a missing target on another one.
  MoveWay prepare();

  // After the command. True when all that was linked is at the target; otherwise one error line,
  // and what is missing is in the source again, or in its tree until the next try. Links, FIFOs,
  // sockets and devices that mv could not take along are dropped once all files of their tree are
  // gone from the source; one line names them, a link with where it led.
  bool settle();

  // Of a move that stays: why, as a log line about `source` and `target`.
  std::string refusal(const char* source, const char* target) const;

  // Of a move that stays: whether a single name might go. Not to a missing target.
  bool may_go_in_part() const { return is_pattern_ && has_target_; }

 private:
  void weigh(int target, MoveFacts* facts);
  void make_links();

  std::string from_;  // the directory that is moved from
  std::vector<std::string> names_;
  bool is_pattern_;
  const std::string to_;
  ScopedFd base_;  // of `from_`
  bool has_target_ = true;
  std::vector<TreeList> linked_;    // of a move that crosses
  std::vector<TreeList> unlinked_;  // the same, for which the room was weighed
  std::unique_ptr<MoveLock> lock_;  // while there are links
  int64_t needed_ = kSpaceUnknown;
  int64_t available_ = 0;
};

// Settles what a killed daemon's moves have left. At start-up, before logging begins; main process.
void settle_moves();

// Removes the trees of `name` in the directory `dir`; of every name when that is null.
void remove_move_trees(const char* dir, const char* name);
