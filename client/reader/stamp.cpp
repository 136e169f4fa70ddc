#include "client/reader/stamp.h"

#include <stdio.h>
#include <string.h>

#include <algorithm>

namespace {

constexpr LogStamp kZoneSlack = 2 * kDay;
constexpr size_t kFractionMax = 9;  // digits
constexpr int kDaysOfMonth[] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};

bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

// The number of two digits at `at`, -1 for other characters.
int two_digits(const char* at) {
  return is_digit(at[0]) && is_digit(at[1]) ? (at[0] - '0') * 10 + at[1] - '0' : -1;
}

// The number of six digits at `text`, -1 for other characters. Without a loop, as every line has
// one. Reads 8 bytes; little-endian only.
int64_t six_digits(const char* text) {
  uint64_t digits;
  memcpy(&digits, text, sizeof digits);
  digits = (digits & 0xffffffffffff) - 0x303030303030;
  // The upper bit of a byte is set here for a character below '0' or above '9'.
  if (((digits | (digits + 0x767676767676)) & 0xffff808080808080) != 0) return -1;
  const uint64_t pairs = digits * 10 + (digits >> 8);  // in each second byte
  return static_cast<int64_t>((pairs & 0xff) * 10000 + (pairs >> 16 & 0xff) * 100 +
                              (pairs >> 32 & 0xff));
}

// The proleptic Gregorian calendar; a year begins in March here, so that the leap day ends it.
int64_t days_before(int year, int month, int day) {
  const int64_t y = month <= 2 ? year - 1 : year;
  const int64_t era = (y >= 0 ? y : y - 399) / 400;
  const int64_t of_era = y - era * 400;
  const int64_t of_year = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
  return era * 146097 + of_era * 365 + of_era / 4 - of_era / 100 + of_year - 719468;
}

// Reads "MM-DD hh:mm"; does not change year, second and micros. False when it is no time.
bool read_to_minute(const char* text, CivilStamp* time) {
  time->month = two_digits(text);
  time->day = two_digits(text + 3);
  time->hour = two_digits(text + 6);
  time->minute = two_digits(text + 9);
  return text[2] == '-' && text[5] == ' ' && text[8] == ':' && time->month >= 1 &&
         time->month <= 12 && time->day >= 1 && time->day <= kDaysOfMonth[time->month - 1] &&
         time->hour >= 0 && time->hour < 24 && time->minute >= 0 && time->minute < 60;
}

// Removes a decimal number and the blanks before it from the text. False when there is none.
bool take_number(std::string_view* text, int* number) {
  size_t at = 0;
  while (at < text->size() && (*text)[at] == ' ') at++;
  const size_t first = at;
  int value = 0;
  for (; at < text->size() && is_digit((*text)[at]) && at - first < 9; at++) {
    value = value * 10 + (*text)[at] - '0';
  }
  if (at == first) return false;
  *number = value;
  text->remove_prefix(at);
  return true;
}

}  // namespace

LogStamp stamp_of(const CivilStamp& time) {
  const int64_t minutes =
      (days_before(time.year, time.month, time.day) * 24 + time.hour) * 60 + time.minute;
  return (minutes * 60 + time.second) * kSecond + time.micros;
}

CivilStamp civil_of(LogStamp stamp) {
  int64_t days = stamp / kDay - (stamp % kDay < 0 ? 1 : 0);
  const int64_t rest = stamp - days * kDay;
  CivilStamp time = {};
  time.micros = static_cast<int>(rest % kSecond);
  const int seconds = static_cast<int>(rest / kSecond);
  time.hour = seconds / 3600;
  time.minute = seconds / 60 % 60;
  time.second = seconds % 60;
  days += 719468;
  const int64_t era = (days >= 0 ? days : days - 146096) / 146097;
  const int64_t of_era = days - era * 146097;
  const int64_t year = (of_era - of_era / 1460 + of_era / 36524 - of_era / 146096) / 365;
  const int64_t of_year = of_era - (365 * year + year / 4 - year / 100);
  const int64_t month = (5 * of_year + 2) / 153;
  time.day = static_cast<int>(of_year - (153 * month + 2) / 5 + 1);
  time.month = static_cast<int>(month < 10 ? month + 3 : month - 9);
  time.year = static_cast<int>(year + era * 400 + (time.month <= 2 ? 1 : 0));
  return time;
}

std::string stamp_text(LogStamp stamp) {
  const CivilStamp time = civil_of(stamp);
  char text[80];
  snprintf(text, sizeof text, "%02d-%02d %02d:%02d:%02d.%06d", time.month, time.day, time.hour,
           time.minute, time.second, time.micros);
  return text;
}

std::string iso_text(LogStamp stamp) {
  std::string text = std::to_string(civil_of(stamp).year) + "-" + stamp_text(stamp);
  text[text.find(' ')] = 'T';
  return text;
}

StampParser::StampParser(LineFormat format, int64_t written)
    : format_(format), latest_(written * kSecond + kZoneSlack) {}

// Fills second_ and second_stamp_.
bool StampParser::read_second(std::string_view line) {
  CivilStamp time = {};
  if (line[11] != ':' || line[14] != '.' || !read_to_minute(line.data(), &time)) return false;
  time.second = two_digits(&line[12]);
  if (time.second < 0 || time.second > 60) return false;
  time.year = civil_of(latest_).year;
  second_stamp_ = stamp_of(time);
  if (second_stamp_ - time.second * kSecond > latest_) {
    --time.year;
    second_stamp_ = stamp_of(time);
  }
  memcpy(second_, line.data(), kSecondBytes);
  return true;
}

LogStamp StampParser::threadtime(std::string_view line) {
  if (line.size() < kSecondBytes + sizeof "724") return kNoStamp;
  if (memcmp(line.data(), second_, kSecondBytes) != 0 && !read_second(line)) return kNoStamp;
  const char* const fraction = line.data() + kSecondBytes;
  if (line.size() >= kSecondBytes + 8 && fraction[6] == ' ') {
    const int64_t micros = six_digits(fraction);
    if (micros >= 0) return second_stamp_ + micros;
  }
  const size_t most = std::min(line.size() - kSecondBytes - 1, kFractionMax);
  int64_t micros = 0;
  int64_t unit = kSecond;
  size_t digits = 0;
  for (; digits < most && is_digit(fraction[digits]); digits++) {
    unit /= 10;
    micros += unit * (fraction[digits] - '0');
  }
  return digits < 3 || fraction[digits] != ' ' ? kNoStamp : second_stamp_ + micros;
}

// Both formats with a year.
LogStamp StampParser::dated(std::string_view line) const {
  constexpr size_t kClock = 14;  // "11-22 06:17:46"
  const bool touch = format_ == LineFormat::kTouch;
  const size_t year_digits = touch ? 4 : 2;
  if (line.size() < year_digits + 1 + kClock + 2 || line[year_digits] != '-') return kNoStamp;
  const int high = touch ? two_digits(line.data()) : 20;
  const int low = two_digits(&line[year_digits - 2]);
  CivilStamp time = {};
  const char* clock = &line[year_digits + 1];
  if (high < 0 || low < 0 || !read_to_minute(clock, &time) || clock[11] != ':') return kNoStamp;
  time.year = high * 100 + low;
  time.second = two_digits(clock + 12);
  if (time.second < 0 || time.second > 60) return kNoStamp;
  std::string_view rest = line.substr(year_digits + 1 + kClock);
  if (!touch) return rest[0] == ' ' && rest[1] == '|' ? stamp_of(time) : kNoStamp;
  if (rest[0] != ':') return kNoStamp;
  rest.remove_prefix(1);
  // Microseconds without leading zeros.
  return is_digit(rest[0]) && take_number(&rest, &time.micros) && time.micros < kSecond
             ? stamp_of(time)
             : kNoStamp;
}

bool parse_threadtime(std::string_view line, ThreadtimeFields* fields) {
  const size_t dot = line.find('.');
  if (dot == std::string_view::npos) return false;
  const size_t blank = line.find(' ', dot);
  if (blank == std::string_view::npos) return false;
  std::string_view rest = line.substr(blank);
  if (!take_number(&rest, &fields->pid) || !take_number(&rest, &fields->tid)) return false;
  if (rest.size() < 4 || rest[0] != ' ' || rest[2] != ' ') return false;
  fields->level = rest[1];
  rest.remove_prefix(3);
  const size_t colon = rest.find(": ");
  if (colon == std::string_view::npos) return false;
  fields->message = rest.substr(colon + 2);
  const size_t end = rest.find_last_not_of(' ', colon == 0 ? 0 : colon - 1);
  fields->tag = end == std::string_view::npos || colon == 0 ? "" : rest.substr(0, end + 1);
  return true;
}
