// The strings of the stand-in Parcel, byte by byte, which the daemon's replies and paths depend on.
// Numbers and whole requests are in the protocol's vectors.
#include <binder/Parcel.h>

#include "tests/pure/ctl_support.h"

namespace {

using android::Parcel;

// Reads a string and an int32; returns them and the rest as text.
std::string read_all(const Parcel& parcel) {
  size_t length = 77;  // every result must set it
  const char16_t* text = parcel.readString16Inplace(&length);
  std::string shown = text == nullptr ? "null" : "'";
  for (size_t i = 0; text != nullptr && i < length; i++) shown += static_cast<char>(text[i]);
  shown += "/" + std::to_string(length) + " " + std::to_string(parcel.readInt32());
  return shown + " left " + std::to_string(parcel.dataAvail());
}

TEST(Parcel, ReadsStringsOnlyWhole) {
  const struct {
    const char *what, *hex;
    std::string shown;
  } rows[] = {
      {"terminator ends the word", "01000000 61000000 07000000", "'a/1 7 left 0"},
      {"odd number of units: padded", "02000000 61006200 00000000 07000000", "'ab/2 7 left 0"},
      {"empty", "00000000 00000000 07000000", "'/0 7 left 0"},
      {"a NUL inside counts", "03000000 61000000 62000000", std::string("'a\0b/3 0 left 0", 15)},
      {"null", "ffffffff 07000000", "null/0 7 left 0"},
      {"most negative count", "00000080 07000000", "null/0 7 left 0"},
      {"count whose bytes wrap in 32 bits", "ffffff3f 07000000", "null/0 7 left 0"},
      {"no terminator: skipped, not shown", "01000000 61006200 07000000", "null/0 7 left 0"},
      {"units without the terminator", "03000000 61006200 6300", "null/0 6422625 left 2"},
      {"all units, but not the padding", "02000000 61006200 0000", "null/0 6422625 left 2"},
      {"count cut off", "020000", "null/0 0 left 3"},
  };
  for (const auto& row : rows) {
    const std::string bytes = from_hex(row.hex);
    Parcel parcel;
    ASSERT_EQ(parcel.setData(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()), 0);
    EXPECT_EQ(read_all(parcel), row.shown) << row.what;
  }
}

TEST(Parcel, PadsStringsWithTheirNul) {
  const std::pair<const char*, const char*> rows[] = {
      {"", "00000000"}, {"abc", "61626300"}, {"abcd", "61626364 00000000"}};
  for (const auto& [text, hex] : rows) {
    Parcel parcel;
    parcel.writeCString(text);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(parcel.data()), parcel.dataSize()),
              from_hex(hex));
  }
}

}  // namespace
