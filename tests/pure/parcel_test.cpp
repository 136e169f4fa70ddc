// The wire format byte by byte, against hex written down by hand.
#include <binder/Parcel.h>
#include <gtest/gtest.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace {

using android::Parcel;

std::string hex_of(const Parcel& parcel) {
  std::string text;
  for (size_t i = 0; i < parcel.dataSize(); ++i) {
    char byte[4];
    snprintf(byte, sizeof(byte), "%02x", parcel.data()[i]);
    text += byte;
    if (i % 4 == 3) text += ' ';
  }
  if (!text.empty() && text.back() == ' ') text.pop_back();
  return text;
}

std::vector<uint8_t> bytes_of(const std::string& hex) {
  std::vector<uint8_t> bytes;
  for (size_t i = 0; i < hex.size();) {
    if (hex[i] == ' ') {
      ++i;
      continue;
    }
    bytes.push_back(static_cast<uint8_t>(std::stoul(hex.substr(i, 2), nullptr, 16)));
    i += 2;
  }
  return bytes;
}

// Runs the reads named by `script` (i int32, q int64, s string) and shows what each gave, and what
// is left. A string shows as "text"/length in units, or null/length.
std::string read_all(const Parcel& parcel, const char* script) {
  std::string shown;
  for (const char* op = script; *op != '\0'; ++op) {
    if (*op == 'i') shown += std::to_string(parcel.readInt32());
    if (*op == 'q') shown += std::to_string(parcel.readInt64());
    if (*op == 's') {
      size_t length = 77;  // every outcome has to set it
      const char16_t* text = parcel.readString16Inplace(&length);
      std::string ascii = text == nullptr ? "null" : "\"";
      for (size_t i = 0; text != nullptr && i < length; ++i) ascii += static_cast<char>(text[i]);
      shown += ascii + (text == nullptr ? "/" : "\"/") + std::to_string(length);
    }
    shown += ' ';
  }
  return shown + "left " + std::to_string(parcel.dataAvail());
}

TEST(Parcel, WritesThePlatformsBytes) {
  const struct {
    const char* what;
    std::function<void(Parcel&)> write;
    const char* hex;
  } rows[] = {
      {"nothing", [](Parcel&) {}, ""},
      {"int32 is little-endian", [](Parcel& p) { p.writeInt32(0x01020304); }, "04030201"},
      {"negative int32", [](Parcel& p) { p.writeInt32(-2); }, "feffffff"},
      {"int64, low half first", [](Parcel& p) { p.writeInt64(0x0102030405060708); },
       "08070605 04030201"},
      {"int64 aligned to 4, not 8",
       [](Parcel& p) {
         p.writeInt32(1);
         p.writeInt64(-1);
       },
       "01000000 ffffffff ffffffff"},
      {"empty CString still has its NUL", [](Parcel& p) { p.writeCString(""); }, "00000000"},
      {"CString with one byte of padding", [](Parcel& p) { p.writeCString("ab"); }, "61620000"},
      {"CString whose NUL ends the word", [](Parcel& p) { p.writeCString("abc"); }, "61626300"},
      {"CString that needs a word for its NUL", [](Parcel& p) { p.writeCString("abcd"); },
       "61626364 00000000"},
      {"a reply",
       [](Parcel& p) {
         p.writeInt32(1);
         p.writeInt64(7);
         p.writeInt32(5);
         p.writeCString("1.2.3");
       },
       "01000000 07000000 00000000 05000000 312e322e 33000000"},
  };
  for (const auto& row : rows) {
    Parcel parcel;
    row.write(parcel);
    EXPECT_EQ(hex_of(parcel), row.hex) << row.what;
    EXPECT_EQ(parcel.dataAvail(), 0u) << row.what << ": the position follows what is written";
  }
}

TEST(Parcel, ReadsWhatFitsAndStaysWhereItDoesNot) {
  const struct {
    const char* hex;
    const char* script;
    const char* shown;
  } rows[] = {
      {"04030201", "i", "16909060 left 0"},
      {"08070605 04030201", "q", "72623859790382856 left 0"},
      {"01000000 ffffffff ffffffff", "iq", "1 -1 left 0"},  // no gap before the int64
      {"", "iqs", "0 0 null/0 left 0"},
      {"010000", "iq", "0 0 left 3"},            // not even a part of it
      {"01000000 0203", "iii", "1 0 0 left 2"},  // the rest stays unread
      {"01000000 02000000 03", "iqi",
       "1 0 2 left 1"},  // a short int64 leaves its bytes to the next
  };
  for (const auto& row : rows) {
    const std::vector<uint8_t> bytes = bytes_of(row.hex);
    Parcel parcel;
    ASSERT_EQ(parcel.setData(bytes.data(), bytes.size()), 0);
    EXPECT_EQ(read_all(parcel, row.script), row.shown) << row.hex << " " << row.script;
  }
}

TEST(Parcel, ReadsStringsOnlyWhole) {
  const struct {
    const char* what;
    const char* hex;
    const char* script;
    std::string shown;
  } rows[] = {
      {"terminator ends the word", "01000000 61000000", "s", "\"a\"/1 left 0"},
      {"odd number of units: padded", "02000000 61006200 00000000 07000000", "si",
       "\"ab\"/2 7 left 0"},
      {"empty", "00000000 00000000 07000000", "si", "\"\"/0 7 left 0"},
      {"a NUL inside counts", "03000000 61000000 62000000", "s",
       std::string("\"a\0b\"/3 left 0", 14)},
      {"null", "ffffffff 07000000", "si", "null/0 7 left 0"},
      {"most negative count", "00000080 07000000", "si", "null/0 7 left 0"},
      {"most positive count", "ffffff7f 07000000", "si", "null/0 7 left 0"},
      {"count whose bytes wrap in 32 bits", "ffffff3f 07000000", "si", "null/0 7 left 0"},
      {"no terminator: skipped, not shown", "01000000 61006200 07000000", "si", "null/0 7 left 0"},
      {"count alone", "01000000", "s", "null/0 left 0"},
      {"units without the terminator", "03000000 61006200 6300", "s", "null/0 left 6"},
      {"all units, but not the padding", "02000000 61006200 0000", "s", "null/0 left 6"},
      {"count cut off", "020000", "s", "null/0 left 3"},
  };
  for (const auto& row : rows) {
    const std::vector<uint8_t> bytes = bytes_of(row.hex);
    Parcel parcel;
    ASSERT_EQ(parcel.setData(bytes.data(), bytes.size()), 0);
    EXPECT_EQ(read_all(parcel, row.script), row.shown) << row.what;
  }
}

TEST(Parcel, SetDataCopiesAndStartsAgain) {
  std::vector<uint8_t> bytes = bytes_of("01000000 02000000");
  Parcel parcel;
  ASSERT_EQ(parcel.setData(bytes.data(), bytes.size()), 0);
  bytes.assign(bytes.size(), 0xff);
  EXPECT_EQ(read_all(parcel, "ii"), "1 2 left 0");
  ASSERT_EQ(parcel.setData(bytes.data(), 4), 0);
  EXPECT_EQ(read_all(parcel, "ii"), "-1 0 left 0");  // nothing of the first content
  ASSERT_EQ(parcel.setData(nullptr, 0), 0);
  EXPECT_EQ(parcel.dataSize(), 0u);
  EXPECT_NE(parcel.setData(bytes.data(), size_t{INT32_MAX} + 1), 0);  // refused before it is read
}

}  // namespace
