// Event sequences of a touch screen's driver, and the lines of a touch log. Pure: no device, no
// clock.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "phone/input/control.h"

using InputEvents = std::vector<InputEvent>;

struct Point {
  int x = 0;
  int y = 0;
};

// One contact goes down at `at` and up again: two packets, each with its SYN_REPORT.
InputEvents tap(Point at);

// One contact goes down, moves in `steps` (at least 1) packets to the other end, and up.
InputEvents swipe(Point from, Point to, int steps);

// `count` contacts (1..10) go down one after the other, move together in `steps` packets and go up.
InputEvents many_contacts(int count, int steps);

// `count` events, absolute x positions `first`, first + 1, ... without the end of a packet between
// them: missing, doubled or swapped events show in the values.
InputEvents numbered(int first, int count);

// Parses a type, code and value: numbers (0x.. too) or names; a key's value may be UP, DOWN or
// REPEAT. Names cut to 20 characters, as in logs, are accepted. False: neither.
bool read_event(const std::string& type, const std::string& code, const std::string& value,
                InputEvent* event);

// A line of a touch log.
struct LoggedEvent {
  int64_t microseconds = 0;  // of its time stamp, since 0000-03-01, local
  bool second_touch = false;
  InputEvent event = {};
};

// False for other lines: a removed device, a partial line.
bool read_log_line(const std::string& line, LoggedEvent* logged);
