#include <gtest/gtest.h>
#include <stdlib.h>

#include <memory>
#include <string>

#include "daemon/harrowmoss.h"

namespace {

struct Freer {
  void operator()(char* text) const { free(text); }
};

std::string converted(const std::u16string& units) {
  const std::unique_ptr<char, Freer> text(strndup16to8(units.data(), units.size()));
  return text == nullptr ? "(null)" : text.get();
}

TEST(Strndup16to8, EncodesEachUnitOnItsOwn) {
  const struct {
    std::u16string units;
    std::string bytes;
  } rows[] = {
      {u"", ""},
      {u"/sdcard/a b", "/sdcard/a b"},
      {std::u16string(1, u'\0'), "\xc0\x80"},  // no terminator
      {std::u16string(u"a\0b", 3),
       "a\xc0\x80"
       "b"},
      {u"\U0001f600", "\xed\xa0\xbd\xed\xb8\x80"},            // two surrogates, 3 bytes each
      {std::u16string(1, char16_t{0xdc00}), "\xed\xb0\x80"},  // a lone one as well
  };
  for (const auto& row : rows) EXPECT_EQ(converted(row.units), row.bytes);
}

TEST(Strndup16to8, EveryUnitRoundTrips) {
  for (unsigned unit = 1; unit <= 0xffff; unit++) {
    const std::string bytes = converted(std::u16string(1, static_cast<char16_t>(unit)));
    const auto byte = [&bytes](size_t i) { return static_cast<unsigned char>(bytes[i]); };
    ASSERT_EQ(bytes.size(), unit < 0x80 ? 1u : unit < 0x800 ? 2u : 3u) << unit;
    unsigned decoded = 0;
    if (bytes.size() == 1) decoded = byte(0);
    if (bytes.size() == 2) decoded = (byte(0) & 0x1fu) << 6 | (byte(1) & 0x3fu);
    if (bytes.size() == 3)
      decoded = (byte(0) & 0x0fu) << 12 | (byte(1) & 0x3fu) << 6 | (byte(2) & 0x3fu);
    ASSERT_EQ(decoded, unit);
  }
}

TEST(Strndup16to8, TakesExactlyTheCount) {
  const std::u16string text = u"abcdef";
  const std::unique_ptr<char, Freer> cut(strndup16to8(text.data(), 3));
  EXPECT_STREQ(cut.get(), "abc");
  const std::unique_ptr<char, Freer> none(strndup16to8(text.data(), 0));
  EXPECT_STREQ(none.get(), "");
  EXPECT_EQ(strndup16to8(nullptr, 3), nullptr);
}

}  // namespace
