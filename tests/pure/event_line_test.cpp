#include "input/event_line.h"

#include <gtest/gtest.h>
#include <stdio.h>

#include <string>

namespace {

std::string fields(uint16_t type, uint16_t code, int32_t value) {
  char line[kEventLineSize];
  const size_t length = format_event_fields(line, type, code, value);
  EXPECT_EQ(length, strlen(line));
  return line;
}

TEST(EventLine, FieldsByteForByte) {
  const struct {
    uint16_t type, code;
    int32_t value;
    const char* text;
  } rows[] = {
      // clang-format off
      {1, 158, 0, "EV_KEY       KEY_BACK             UP                  "},
      {1, 158, 1, "EV_KEY       KEY_BACK             DOWN                "},
      {1, 158, 2, "EV_KEY       KEY_BACK             REPEAT              "},
      {1, 158, 3, "EV_KEY       KEY_BACK             3            "},
      {1, 158, -1, "EV_KEY       KEY_BACK             -1            "},
      {0x17, 5, 1,  "EV_FF_STATUS 0005                 1            "},
      {0xabcd, 0xef01, INT32_MIN, "abcd         ef01                 -2147483648            "},
      {4, 4, INT32_MAX, "EV_MSC       MSC_SCAN             2147483647            "},
      // Names of 20, 21 and 22 characters; names longer than the column are cut.
      {1, 204, 1,   "EV_KEY       KEY_ALL_APPLICATIONS DOWN                "},
      {1, 0x2b1, 0, "EV_KEY       KEY_MACRO_RECORD_STO UP                  "},
      // clang-format on
  };
  for (const auto& row : rows) EXPECT_EQ(fields(row.type, row.code, row.value), row.text);
}

TEST(EventLine, StampHasUnpaddedMicroseconds) {
  const std::pair<CivilTime, long> rows[] = {{{2024, 3, 9, 7, 5, 2}, 41307},
                                             {{2026, 12, 31, 23, 59, 59}, 999999},
                                             {{1970, 1, 1, 0, 0, 0}, 0}};
  for (const auto& [when, microseconds] : rows) {
    char text[kEventStampSize], expected[64];
    snprintf(expected, sizeof(expected), "%04d-%02d-%02d %02d:%02d:%02d:%ld  ", when.year,
             when.month, when.day, when.hour, when.minute, when.second, microseconds);
    EXPECT_EQ(format_event_stamp(text, when, microseconds), strlen(expected));
    EXPECT_STREQ(text, expected);
  }
  // Unrealistic dates, which must not overflow the buffer.
  const int low = INT32_MIN;
  char text[kEventStampSize];
  const size_t length = format_event_stamp(text, {low, low, low, low, low, low}, INT64_MIN);
  EXPECT_LT(length, sizeof(text));
  EXPECT_EQ(length, strlen(text));
}

}  // namespace
