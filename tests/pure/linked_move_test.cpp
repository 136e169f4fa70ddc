// The decisions of a move to another file system: the method, and each file's arrival.
#include "storage/linked_move.h"

#include <gtest/gtest.h>

#include "model/move_trees.h"

namespace {

TEST(LinkedMove, TakesTheSafestWayThatTheRoomAllows) {
  constexpr auto kLinks = MoveWay::kWithLinks, kBare = MoveWay::kBare, kStays = MoveWay::kStays;
  const struct {
    bool one_pool, can_link, tree_fits, largest_fits;
    MoveWay way;
  } rows[] = {
      {false, true, true, true, kLinks},   {false, true, true, false, kLinks},
      {false, true, false, true, kStays},  {false, true, false, false, kStays},
      {false, false, true, false, kBare},  {false, false, false, true, kStays},
      {true, true, true, true, kLinks},    {true, true, false, true, kBare},
      {true, true, false, false, kStays},  {true, false, true, true, kBare},
      {true, false, false, false, kStays},
  };
  for (const auto& row : rows) {
    const MoveFacts facts = {row.one_pool, row.can_link, row.tree_fits, row.largest_fits};
    EXPECT_EQ(judge_move(facts), row.way) << &row - rows;
  }
}

TEST(LinkedMove, AFileHasArrivedWhenItHasAllOfItsLink) {
  const struct {
    int64_t at_start, now, there;
    Arrival state;
  } rows[] = {
      {5, 5, 5, Arrival::kComplete},       {5, 5, 9, Arrival::kComplete},
      {0, 0, 0, Arrival::kComplete},       {5, 2, 2, Arrival::kComplete},  // emptied by its writer
      {5, 7, 5, Arrival::kGrown},          {5, 7, 6, Arrival::kGrown},
      {5, 5, 4, Arrival::kMissing},        {5, 7, 4, Arrival::kMissing},
      {0, 0, kAbsent, Arrival::kMissing},  {5, 5, kUnknown, Arrival::kMissing},
      {5, kUnknown, 5, Arrival::kMissing}, {5, kAbsent, kAbsent, Arrival::kNone},
  };
  for (const auto& row : rows)
    EXPECT_EQ(judge_arrival(row.at_start, row.now, row.there), row.state) << &row - rows;
}

TEST(LinkedMove, ItsTreesAreRecognisedByName) {
  for (const char* name : {".linking-1#run", ".moving-1#run"}) EXPECT_TRUE(is_move_tree(name));
  for (const char* name : {"1#run", ".logger", ".linking", "moving-1#run", ""})
    EXPECT_FALSE(is_move_tree(name)) << name;
}

}  // namespace
