// Where root may copy to when a client says so.
#include <gtest/gtest.h>

#include <string>

#include "feedback/feedback.h"

namespace {

constexpr char kShallow[] = "too high in the tree", kDots[] = "has a . or .. component",
               kControl[] = "has a control byte", kInside[] = "inside of what is copied",
               kLong[] = "too long", kRelative[] = "not absolute";

std::string fault_of(const char* path) {
  const char* const fault = feedback_destination_fault(path);
  return fault == nullptr ? "" : fault;
}

TEST(Destination, IsRefusedForWhatRootWouldDoThere) {
  const struct {
    const char* path;
    const char* fault;
  } rows[] = {
      {nullptr, kRelative},
      {"", kRelative},
      {"sdcard/x", kRelative},
      {" /sdcard/x", kRelative},
      {"~/x", kRelative},
      {"/", kShallow},
      {"//", kShallow},
      {"/data", kShallow},
      {"//data//", kShallow},
      {"/*", kShallow},
      {"/..", kShallow},
      {"/sdcard/..", kDots},
      {"/sdcard/../data", kDots},
      {"/sdcard//..//x", kDots},
      {"/sdcard/./x", kDots},
      {"/sdcard/x/.", kDots},
      {"/sdcard/x/../", kDots},
      {"/./sdcard", kDots},
      {"/sdcard/a\nb", kControl},
      {"/sdcard/x\n", kControl},
      {"/sdcard/\x01", kControl},
      {"/sdcard/\tx", kControl},
      {"/sdcard/x\x7f", kControl},
      {"/sdcard/\x1b[2J", kControl},
      {"/data/anr", kInside},
      {"/data/anr/", kInside},
      {"//data///anr//x", kInside},
      {"/data/tombstones/a/b", kInside},
      {"/sys/fs/pstore/x", kInside},
      {"/data/aee_exp", kInside},
      {"/sdcard/Android/data/.harrowmoss/general", kInside},
      {"/sdcard//Android/data/.harrowmoss//general/x", kInside},
      {"/sdcard/Android/data/.harrowmoss/zklog/feedback/power/x", kInside},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(fault_of(row.path), row.fault) << (row.path == nullptr ? "null" : row.path);
  }
}

TEST(Destination, IsTakenHoweverOddItsNameIs) {
  for (const char* path : {"/sdcard/x",         "/sdcard/x/",
                           "//sdcard//x",       "/sdcard/...",
                           "/sdcard/..x",       "/sdcard/x..",
                           "/sdcard/.x",        "/sdcard/ ",
                           "/sdcard/x;touch y", "/sdcard/$(x)",
                           "/sdcard/`x`",       "/sdcard/*",
                           "/sdcard/'\"\\",     "/sdcard/\xc3\xa9\xe4\xb8\xad",
                           "/sdcard/\x80\xff",  "/sdcard/-rf",
                           "/data/anrs",        "/data/an",
                           "/data/local/anr",   "/sys/fs/pstor",
                           "/data/aee_exp2/x",  "/sdcard/Android/data/.harrowmoss/general2"}) {
    EXPECT_EQ(fault_of(path), "") << path;
  }
}

std::string repeated(const char* text, int times) {
  std::string all;
  for (int i = 0; i < times; i++) all += text;
  return all;
}

// The longest command takes 89 bytes, counted as the shell gets them.
TEST(Destination, IsMeasuredAsItIsEscaped) {
  const std::string base = "/sdcard/";  // 8 bytes
  const struct {
    std::string path;
    const char* fault;
  } rows[] = {
      {base + repeated("x", 81), ""},
      {base + repeated("x", 82), kLong},
      {base + repeated("x", 112), kLong},
      {base + repeated("x", 1000), kLong},
      {base + repeated(" ", 40) + "x", ""},
      {base + repeated(" ", 40) + "xx", kLong},
      {base + repeated(" ", 41), kLong},
      {base + repeated("'$", 20) + "x", ""},
      {base + repeated("'$", 20) + "xx", kLong},
      {base + repeated("\xc3\xa9", 40) + "x", ""},  // not escaped
      {base + repeated("\xc3\xa9", 41), kLong},
      {repeated("/", 82) + "sd/card", ""},
      {repeated("/", 83) + "sd/card", kLong},
  };
  for (const auto& row : rows) EXPECT_EQ(fault_of(row.path.c_str()), row.fault) << row.path;
}

TEST(Destination, EachRequestNamesItsOwnSourcesAndBound) {
  const char* const sources[] = {"/a/b", "/c/d/"};
  const auto fault = [&](const char* path, size_t count, bool fits) {
    const char* const text = destination_fault(
        path, sources, count,
        fits ? [](const char*) { return true; } : [](const char*) { return false; });
    return std::string(text == nullptr ? "" : text);
  };
  EXPECT_EQ(fault("/a/b/x", 0, true), "");
  EXPECT_EQ(fault("/a/b/x", 2, true), kInside);
  EXPECT_EQ(fault("/c/d", 2, true), kInside);
  EXPECT_EQ(fault("/c/d", 1, true), "");
  EXPECT_EQ(fault("/c/dd", 2, true), "");
  EXPECT_EQ(fault("/x/y", 2, false), kLong);
}

}  // namespace
