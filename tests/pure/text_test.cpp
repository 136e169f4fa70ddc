#include "base/text.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <string>
#include <type_traits>

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

TEST(AppendOrAbortDeathTest, NeverWritesBeyondTheBuffer) {
  char full[4] = "abc";
  char unterminated[4] = {'a', 'b', 'c', 'd'};
  EXPECT_EXIT(append_or_abort(full, "d"), kAborted, "");
  EXPECT_EXIT(copy_or_abort(full, "abcd"), kAborted, "");
  EXPECT_EXIT(append_or_abort(unterminated, ""), kAborted, "");
}

TEST(FormatCut, ReturnsTheLengthInTheBuffer) {
  const std::pair<const char*, const char*> rows[] = {
      {"", ""}, {"abc", "abc"}, {"abcd", "abcd"}, {"abcde", "abcd"}, {"abcdefgh", "abcd"}};
  for (const auto& [text, kept] : rows) {
    char buffer[5];
    EXPECT_EQ(format_cut(buffer, "%s", text), strlen(kept));
    EXPECT_STREQ(buffer, kept);
  }
}

TEST(ShellText, LeavesOrdinaryNamesAsTheyAre) {
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
    const ShellText text = ShellText("rm").arg(name).raw(";");
    EXPECT_TRUE(text.can_be_given());
    EXPECT_EQ(text.c_str(), std::string("rm ") + escaped + ";");
  }
}

TEST(ShellText, RefusesANewlineWhereverItStands) {
  for (const char* name : {"\n", "a\nb", "a\n", "\na"}) {
    EXPECT_FALSE(ShellText("rm").arg(name).arg("b").can_be_given()) << name;
    EXPECT_FALSE(ShellText("rm").pattern(std::string(name) + "/*").can_be_given()) << name;
  }
}

// Composed text can only enter as a word.
template <typename Text>
constexpr bool kIsFixed =
    std::is_constructible_v<FixedText, Text> || std::is_convertible_v<Text, ShellText>;
static_assert(kIsFixed<const char (&)[8]>);
static_assert(!kIsFixed<char (&)[8]> && !kIsFixed<const char*> && !kIsFixed<std::string>);

}  // namespace
