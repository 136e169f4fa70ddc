#include "base/text.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <string>

#include "storage/shell.h"

namespace {

const auto kAborted = ::testing::KilledBySignal(SIGABRT);

TEST(AppendOrAbort, FillsABufferToItsLastByte) {
  char buffer[8] = "ab";
  EXPECT_EQ(append_or_abort(buffer, "cde"), 5u);
  EXPECT_EQ(append_or_abort(buffer, ""), 5u);
  EXPECT_EQ(append_or_abort(buffer, "fg"), 7u);
  EXPECT_STREQ(buffer, "abcdefg");
  EXPECT_EQ(copy_or_abort(buffer, "1234567"), 7u);  // does not append
  EXPECT_STREQ(buffer, "1234567");
  EXPECT_EQ(copy_or_abort(buffer, ""), 0u);
}

TEST(AppendOrAbortDeathTest, NeverWritesBehindTheBuffer) {
  char full[4] = "abc";
  char unterminated[4] = {'a', 'b', 'c', 'd'};
  EXPECT_EXIT(append_or_abort(full, "d"), kAborted, "");
  EXPECT_EXIT(copy_or_abort(full, "abcd"), kAborted, "");
  EXPECT_EXIT(append_or_abort(unterminated, ""), kAborted, "");
}

TEST(FormatCut, ReturnsWhatStandsInTheBuffer) {
  const std::pair<const char*, const char*> rows[] = {
      {"", ""}, {"abc", "abc"}, {"abcd", "abcd"}, {"abcde", "abcd"}, {"abcdefgh", "abcd"}};
  for (const auto& [text, kept] : rows) {
    char buffer[5];
    EXPECT_EQ(format_cut(buffer, "%s", text), strlen(kept));
    EXPECT_STREQ(buffer, kept);
  }
}

TEST(StartsWith, ComparesTheWholePrefix) {
  const struct {
    const char* text;
    const char* prefix;
    bool holds;
  } rows[] = {{"on", "on", true},  {"only", "on", true}, {"o", "on", false}, {"", "on", false},
              {"On", "on", false}, {"", "", true},       {"off", "", true}};
  for (const auto& row : rows) EXPECT_EQ(starts_with(row.text, row.prefix), row.holds) << row.text;
}

TEST(AppendEscaped, LeavesOrdinaryNamesAsTheyAre) {
  const std::pair<const char*, const char*> rows[] = {
      {"/sdcard/zelkalog/12#03-07_14-05-09", "/sdcard/zelkalog/12#03-07_14-05-09"},
      {"AZaz09._/@%+=:,#-", "AZaz09._/@%+=:,#-"},
      {"a b", "a\\ b"},
      {"1#;touch x", "1#\\;touch\\ x"},
      {"$(id)`id`", "\\$\\(id\\)\\`id\\`"},
      {"~", "\\~"},
      {"a\\b", "a\\\\b"},
      {"*?[]{}", "\\*\\?\\[\\]\\{\\}"},
      {"\t\r", "\\\t\\\r"},
      {"\xc3\xa9\xff", "\xc3\xa9\xff"},  // no shell splits or expands these
      {"", ""},
  };
  for (const auto& [name, escaped] : rows) {
    std::string out = "rm ";
    EXPECT_TRUE(append_escaped(&out, name));
    EXPECT_EQ(out, std::string("rm ") + escaped);
  }
}

TEST(AppendEscaped, RefusesANewlineWhereverItStands) {
  for (const char* name : {"\n", "a\nb", "a\n", "\na"}) {
    std::string out;
    EXPECT_FALSE(append_escaped(&out, name)) << name;
  }
}

}  // namespace
