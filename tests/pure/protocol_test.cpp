
#include "protocol/encode.h"
#include "protocol/names.h"
#include "tests/pure/ctl_support.h"

namespace {

const RequestName& request(int32_t code) {
  return kRequestNames[code - 1];
}

TEST(ProtocolEncoder, TurnsUtf8IntoUtf16) {
  const std::pair<const char*, const char*> good[] = {
      // little-endian units
      {"41 00 42", "4100 0000 4200"},     {"c2 80 df bf", "8000 ff07"},
      {"e0 a0 80 ef bf bf", "0008 ffff"}, {"ed 9f bf ee 80 80", "ffd7 00e0"},
      {"f0 90 80 80", "00d8 00dc"},       {"f4 8f bf bf", "ffdb ffdf"}};
  for (const auto& [utf8, expected] : good) {
    std::u16string units;
    ASSERT_TRUE(utf8_to_utf16(from_hex(utf8), &units)) << utf8;
    const std::string bytes(reinterpret_cast<const char*>(units.data()), units.size() * 2);
    EXPECT_EQ(bytes, from_hex(expected)) << utf8;
  }
  // Truncated, overlong, surrogates, and beyond the last code point.
  for (const char* text : {"80", "c2 41", "f0 9f 98", "c1 bf", "e0 9f bf", "f0 8f bf bf",
                           "ed a0 80", "ed bf bf", "f4 90 80 80", "ff"}) {
    RequestFrame frame;
    std::string error;
    EXPECT_FALSE(encode_request(request(14), 1, {0, "/a/" + from_hex(text)}, &frame, &error));
    EXPECT_FALSE(error.empty()) << text;
  }
}

TEST(ProtocolEncoder, RefusesWhatTheDaemonWouldRejectOrNotSurvive) {
  const struct {
    size_t count;
    char byte;
    bool sent;
  } rows[] = {
      {0, '\x0', false},     // it hangs up on length 0
      {511, '\x0f', true},   // two characters a byte: 1022
      {512, '\x0f', false},  // 1024
      {341, '\x10', true},   // three characters a byte: 1023, the most that fits
      {342, '\x10', false},  //
      {341, '\xff', true},   // a byte is unsigned
      {342, '\xff', false},  //
  };
  for (const auto& row : rows) {
    std::string frame, error;
    EXPECT_EQ(frame_payload(std::string(row.count, row.byte), &frame, &error), row.sent)
        << row.count << " x " << int{row.byte};
    EXPECT_EQ(error.empty(), row.sent);
    EXPECT_EQ(frame.size(), row.sent ? row.count + 2 : 0);
  }
  EXPECT_EQ(dump_text_length(from_hex("00 0f 10 ff")), std::string("0-f-10-ff-").size());

  // A path of ASCII letters takes five characters a letter.
  RequestFrame frame;
  std::string error;
  EXPECT_TRUE(encode_request(request(14), 1, {0, "/" + std::string(190, 'a')}, &frame, &error));
  EXPECT_FALSE(encode_request(request(14), 1, {0, "/" + std::string(210, 'a')}, &frame, &error));
}

TEST(ProtocolNames, ReadListsOfNamesAndNumbers) {
  const struct {
    const MaskWords& words;
    const char* text;
    int32_t mask;
    const char* shown;
  } rows[] = {
      {kLoggerTypeWords, "mobile", 0x1, "mobile"},
      {kLoggerTypeWords, "net,mobile", 0x5, "mobile,net"},
      {kLoggerTypeWords, "mobile,mobile", 0x1, "mobile"},
      {kLoggerTypeWords, "MPSSDUMP,anrdumpsys", 0x2400, "MPSSDump,anrDumpsys"},
      {kLoggerTypeWords, "0x5,touch", 0x15, "mobile,net,touch"},
      {kLoggerTypeWords, "mobile,longlogcat", 0x10001, "mobile,longlogcat"},
      {kLoggerTypeWords, "0", 0, "none"},
      {kLoggerTypeWords, "0x7fffffff", 0x7fffffff, nullptr},
      {kLoggerTypeWords, "all", 0x77ff, nullptr},
      {kFeedbackWords, "all", 0x1fff0, nullptr},
      {kFeedbackWords, "tombstone,general", 0x30, "general,tombstone"},
      {kFeedbackWords, "memory", 0x100, "memory"},  // a logger type has the same name, another bit
  };
  for (const auto& row : rows) {
    int32_t mask = -1;
    std::string error;
    ASSERT_TRUE(parse_mask(row.words, row.text, &mask, &error)) << row.text << ": " << error;
    EXPECT_EQ(mask, row.mask) << row.text;
    const std::string shown = mask_text(row.words, mask);
    EXPECT_EQ(shown, row.shown == nullptr ? shown : row.shown) << row.text;
    int32_t again = -1;
    EXPECT_TRUE(parse_mask(row.words, shown, &again, &error)) << shown;
    EXPECT_EQ(again, mask) << shown;
  }
}

TEST(ProtocolNames, RefuseWhatIsNoNameAndNoNumber) {
  const char* const rows[] = {"",           ",",          "mobile,",    "mobile,,net", "mobil",
                              "mobile net", "0x",         "0x-1",       "-1",          "5x",
                              " 5",         "0x80000000", "4294967295", "general"};
  for (const char* text : rows) {
    int32_t mask = 77;
    std::string error;
    EXPECT_FALSE(parse_mask(kLoggerTypeWords, text, &mask, &error)) << text;
    EXPECT_EQ(mask, 77) << text;
    EXPECT_TRUE(contains(error, "fingerprint")) << "an error teaches the names: " << error;
  }
}

}  // namespace
