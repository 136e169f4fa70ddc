#include "phone/input/touch_sequences.h"

#include <linux/input-event-codes.h>
#include <stdio.h>
#include <stdlib.h>

#include "input/event_names.h"
#include "phone/util.h"

namespace {

constexpr int kMaxContacts = 10;
constexpr size_t kLoggedNameLength = 20;  // names are cut to the width of the log's column
constexpr uint16_t kNames = 0x300;        // above every code

void packet_end(InputEvents* out) {
  out->push_back({EV_SYN, SYN_REPORT, 0});
}

void contact_at(InputEvents* out, int slot, Point at) {
  out->push_back({EV_ABS, ABS_MT_SLOT, slot});
  out->push_back({EV_ABS, ABS_MT_POSITION_X, at.x});
  out->push_back({EV_ABS, ABS_MT_POSITION_Y, at.y});
}

void contact_down(InputEvents* out, int slot, Point at) {
  out->push_back({EV_ABS, ABS_MT_SLOT, slot});
  out->push_back({EV_ABS, ABS_MT_TRACKING_ID, slot});
  if (slot == 0) out->push_back({EV_KEY, BTN_TOUCH, 1});
  out->push_back({EV_ABS, ABS_MT_POSITION_X, at.x});
  out->push_back({EV_ABS, ABS_MT_POSITION_Y, at.y});
  packet_end(out);
}

void contact_up(InputEvents* out, int slot) {
  out->push_back({EV_ABS, ABS_MT_SLOT, slot});
  out->push_back({EV_ABS, ABS_MT_TRACKING_ID, -1});
  if (slot == 0) out->push_back({EV_KEY, BTN_TOUCH, 0});
  packet_end(out);
}

Point start_of(int slot) {
  return {100 + 90 * slot, 1200};
}

// Parses a number, or one of the names that `name_of` returns.
template <typename NameOf>
bool read_number_or_name(const std::string& text, NameOf name_of, long* number) {
  char* end = nullptr;
  *number = strtol(text.c_str(), &end, 0);
  if (end != text.c_str() && *end == '\0') return true;
  for (uint16_t candidate = 0; candidate < kNames; candidate++) {
    const char* name = name_of(candidate);
    if (name == nullptr || (text != name && text != std::string(name).substr(0, kLoggedNameLength)))
      continue;
    *number = candidate;
    return true;
  }
  return false;
}

// Days from 0000-03-01 to a date: differences are right across months and leap years.
int64_t days_to(int year, int month, int day) {
  const int64_t y = month <= 2 ? year - 1 : year;
  const int64_t from_march = month > 2 ? month - 3 : month + 9;
  return 365 * y + y / 4 - y / 100 + y / 400 + (153 * from_march + 2) / 5 + day - 1;
}

}  // namespace

InputEvents tap(Point at) {
  InputEvents out;
  contact_down(&out, 0, at);
  contact_up(&out, 0);
  return out;
}

InputEvents swipe(Point from, Point to, int steps) {
  InputEvents out;
  contact_down(&out, 0, from);
  for (int step = 1; step <= steps; step++) {
    contact_at(&out, 0,
               {from.x + (to.x - from.x) * step / steps, from.y + (to.y - from.y) * step / steps});
    packet_end(&out);
  }
  contact_up(&out, 0);
  return out;
}

InputEvents many_contacts(int count, int steps) {
  constexpr int kStepLength = 10;
  if (count > kMaxContacts) count = kMaxContacts;
  InputEvents out;
  for (int slot = 0; slot < count; slot++) contact_down(&out, slot, start_of(slot));
  for (int step = 1; step <= steps; step++) {
    for (int slot = 0; slot < count; slot++)
      contact_at(&out, slot, {start_of(slot).x, start_of(slot).y - kStepLength * step});
    packet_end(&out);
  }
  for (int slot = count - 1; slot >= 0; slot--) contact_up(&out, slot);
  return out;
}

InputEvents numbered(int first, int count) {
  InputEvents out;
  for (int i = 0; i < count; i++) out.push_back({EV_ABS, ABS_X, first + i});
  return out;
}

bool read_event(const std::string& type, const std::string& code, const std::string& value,
                InputEvent* event) {
  long types = 0, codes = 0, values = 0;
  if (!read_number_or_name(type, event_type_name, &types)) return false;
  const auto code_name = [&](uint16_t candidate) {
    return event_code_name(static_cast<uint16_t>(types), candidate);
  };
  const auto value_name = [](uint16_t candidate) { return key_value_name(candidate); };
  if (!read_number_or_name(code, code_name, &codes) ||
      !read_number_or_name(value, value_name, &values))
    return false;
  *event = {static_cast<uint16_t>(types), static_cast<uint16_t>(codes),
            static_cast<int32_t>(values)};
  return true;
}

bool read_log_line(const std::string& line, LoggedEvent* logged) {
  int year, month, day, hour, minute, second, length = 0;
  long microseconds;
  if (sscanf(line.c_str(), "%d-%d-%d %d:%d:%d:%ld%n", &year, &month, &day, &hour, &minute, &second,
             &microseconds, &length) != 7)
    return false;
  std::vector<std::string> words = split(line.substr(static_cast<size_t>(length)), " ");
  logged->second_touch = !words.empty() && words[0] == "second";
  if (logged->second_touch) words.erase(words.begin());
  if (words.size() != 3) return false;
  logged->microseconds =
      (((days_to(year, month, day) * 24 + hour) * 60 + minute) * 60 + second) * INT64_C(1000000) +
      microseconds;
  // A number without a name is written in four hex digits, without a prefix.
  for (int column = 0; column < 2; column++) {
    const std::string& word = words[static_cast<size_t>(column)];
    if (word.size() == 4 && word.find_first_not_of("0123456789abcdef") == std::string::npos)
      words[static_cast<size_t>(column)] = "0x" + word;
  }
  return read_event(words[0], words[1], words[2], &logged->event);
}
