// What decides about a move to another file system: the way that it takes, and each file's arrival.
#include "storage/linked_move.h"

#include <gtest/gtest.h>

#include "model/move_trees.h"

namespace {

TEST(LinkedMove, TakesTheSafestWayThatTheRoomAllows) {
  constexpr auto kLinks = move_way::with_links, kBare = move_way::bare, kStays = move_way::stays;
  const struct {
    bool one_pool, can_link, tree_fits, largest_fits;
    move_way way;
  } rows[] = {
      {false, true, true, true, kLinks},   {false, true, true, false, kLinks},
      {false, true, false, true, kStays},  {false, true, false, false, kStays},
      {false, false, true, false, kBare},  {false, false, false, true, kStays},
      {true, true, true, true, kLinks},    {true, true, false, true, kBare},
      {true, true, false, false, kStays},  {true, false, true, true, kBare},
      {true, false, false, false, kStays},
  };
  for (const auto& row : rows) {
    const move_facts facts = {row.one_pool, row.can_link, row.tree_fits, row.largest_fits};
    EXPECT_EQ(judge_move(facts), row.way) << &row - rows;
  }
}

TEST(LinkedMove, AFileHasArrivedWhenNothingOfItsLinkIsMissing) {
  const struct {
    int64_t at_start, now, there;
    arrival state;
  } rows[] = {
      {5, 5, 5, arrival::complete},       {5, 5, 9, arrival::complete},
      {0, 0, 0, arrival::complete},       {5, 2, 2, arrival::complete},  // emptied by its writer
      {5, 7, 5, arrival::grown},          {5, 7, 6, arrival::grown},
      {5, 5, 4, arrival::missing},        {5, 7, 4, arrival::missing},
      {0, 0, kAbsent, arrival::missing},  {5, 5, kUnknown, arrival::missing},
      {5, kUnknown, 5, arrival::missing}, {5, kAbsent, kAbsent, arrival::none},
  };
  for (const auto& row : rows)
    EXPECT_EQ(judge_arrival(row.at_start, row.now, row.there), row.state) << &row - rows;
}

TEST(LinkedMove, ItsTreesAreToldByTheirNames) {
  for (const char* name : {".linking-1#run", ".moving-1#run"}) EXPECT_TRUE(is_move_tree(name));
  for (const char* name : {"1#run", ".logger", ".linking", "moving-1#run", ""})
    EXPECT_FALSE(is_move_tree(name)) << name;
}

}  // namespace
