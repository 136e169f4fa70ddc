// The destinations that a client may name.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "feedback/feedback.h"

namespace {

std::string fault_of(const char* path, int mask = -1) {
  const char* const fault = feedback_destination_fault(mask, path);
  return fault == nullptr ? "taken" : fault;
}

TEST(Destination, IsRefusedOnlyWhereRootCouldDoHarm) {
  const std::pair<const char*, std::vector<const char*>> rows[] = {
      {"not absolute", {nullptr, "", "sdcard/x", " /sdcard/x", "~/x", "\n/sdcard/x"}},
      {"too high in the tree", {"/", "//", "/data", "//data//", "/*", "/.."}},
      {"has a . or .. component",
       {"/sdcard/..", "/sdcard/../data", "/sdcard//..//x", "/sdcard/./x", "/sdcard/x/.",
        "/sdcard/x/../", "/./sdcard"}},
      {"has a control byte",
       {"/sdcard/a\nb", "/sdcard/x\n", "/sdcard/\x01", "/sdcard/\tx", "/sdcard/x\x7f",
        "/sdcard/\x1b[2J"}},
      {"inside of what is copied",
       {"/data/anr", "/data/anr/", "//data///anr//x", "/data/tombstones/a/b", "/sys/fs/pstore/x",
        "/data/aee_exp", "/sdcard/Android/data/.harrowmoss/general",
        "/sdcard//Android/data/.harrowmoss//general/x",
        "/sdcard/Android/data/.harrowmoss/zklog/feedback/power/x"}},
      // clang-format off
      {"taken", {"/sdcard/x", "/sdcard/x/", "//sdcard//x", "/sdcard/...", "/sdcard/..x", "/sdcard/x..",
                 "/sdcard/.x", "/sdcard/ ", "/sdcard/x;touch y", "/sdcard/$(x)", "/sdcard/`x`",
                 "/sdcard/*", "/sdcard/'\"\\", "/sdcard/\xc3\xa9\xe4\xb8\xad", "/sdcard/\x80\xff",
                 "/sdcard/-rf", "/data/anrs", "/data/an", "/data/local/anr", "/sys/fs/pstor",
                 "/data/aee_exp2/x", "/sdcard/Android/data/.harrowmoss/general2"}},
      // clang-format on
  };
  for (const auto& [verdict, paths] : rows) {
    for (const char* path : paths)
      EXPECT_EQ(fault_of(path), verdict) << (path == nullptr ? "null" : path);
  }
}

// An unselected part copies and deletes nothing.
TEST(Destination, IsRefusedInsideOfSelectedSourcesOnly) {
  const std::pair<const char*, int> rows[] = {
      {"/data/anr/x", 0x4050},
      {"/data/tombstones", 0x20},
      {"/sys/fs/pstore/x", 0x80},
      {"/sdcard/Android/data/.harrowmoss/general/x", 0x10},
      {"/sdcard/Android/data/.harrowmoss/zklog/feedback/power", 0x1000},
      {"/data/aee_exp/x", 0x2000},
      {"/data/misc/bluetooth/logs/snoops", 0x8000},
  };
  for (const auto& [path, parts] : rows) {
    for (int bit = 1; bit <= 0x10000; bit <<= 1)
      EXPECT_EQ(fault_of(path, bit), (bit & parts) != 0 ? "inside of what is copied" : "taken")
          << path << " " << bit;
  }
}

}  // namespace
