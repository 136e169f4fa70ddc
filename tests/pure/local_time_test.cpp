#include "base/local_time.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>

#include <thread>

namespace {

constexpr time_t kDay = 86400;

std::string text_of(const CivilTime& t) {
  char text[64];
  snprintf(text, sizeof(text), "%d-%02d-%02d %02d:%02d:%02d", t.year, t.month, t.day, t.hour,
           t.minute, t.second);
  return text;
}

// The C library's result for the same second.
std::string expected(time_t now, long offset) {
  const time_t shifted = now + offset;
  tm t = {};
  gmtime_r(&shifted, &t);
  return text_of({t.tm_year + 1900, t.tm_mon + 1, t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec});
}

TEST(CivilTime, EveryDayOfEightHundredYearsAsTheCLibrarySaysIt) {
  // Two whole 400-year eras of the calendar, one before 1970, with both ends of each day.
  for (time_t day = -400 * 366; day < 400 * 366; day++) {
    for (const time_t second : {day * kDay, day * kDay + kDay - 1}) {
      ASSERT_EQ(text_of(to_civil(second, 0)), expected(second, 0)) << second;
    }
  }
}

TEST(CivilTime, OffsetsOfTheWholeWorld) {
  for (long offset = -14 * 3600; offset <= 14 * 3600; offset += 900) {
    for (const time_t now : {time_t{0}, time_t{1709164800}, time_t{-1234567}}) {
      ASSERT_EQ(text_of(to_civil(now, offset)), expected(now, offset)) << now << " " << offset;
    }
  }
}

// A POSIX rule needs no time zone files: an hour ahead, in summer two.
constexpr char kRule[] = "XXX-1YYY,M3.5.0,M10.5.0/3";
constexpr time_t kWinter = 1704067200;                   // 1 January 2024
constexpr time_t kLastWinterQuarter = 1711846800 - 900;  // before the clocks go forward

TEST(UtcOffset, FollowsTheSeasonsFromTheQuarterOnInWhichTheyChange) {
  setenv("TZ", kRule, 1);
  tzset();
  EXPECT_EQ(utc_offset(kWinter), 3600);
  EXPECT_EQ(utc_offset(kLastWinterQuarter + 899), 3600);
  EXPECT_EQ(utc_offset(kLastWinterQuarter + 900), 7200);
  EXPECT_EQ(utc_offset(kWinter), 3600);  // the offset is unchanged
}

// An extra thread must not take the C library's lock: it uses the cached offset.
TEST(UtcOffset, ExtraThreadsUseTheCachedOffset) {
  setenv("TZ", kRule, 1);
  tzset();
  ASSERT_EQ(utc_offset(kWinter), 3600);
  long seen = 0;
  std::thread([&seen] { seen = utc_offset(kLastWinterQuarter + 900); }).join();
  EXPECT_EQ(seen, 3600);
  EXPECT_EQ(utc_offset(kLastWinterQuarter + 900), 7200);
}

}  // namespace
