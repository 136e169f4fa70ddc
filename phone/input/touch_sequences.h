// What fingers on a touch screen make a driver send, and what a touch log says was sent. Pure: no
// device, no clock.
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

// One finger goes down at `at` and up again: two packets, each with its SYN_REPORT.
InputEvents tap(Point at);

// One finger goes down, moves in `steps` (at least 1) packets to the other end, and up.
InputEvents swipe(Point from, Point to, int steps);

// `count` fingers (1..10) go down one after the other, move together in `steps` packets and go up.
InputEvents many_fingers(int count, int steps);

// `count` events, absolute x positions `first`, first + 1, ... without the end of a packet between
// them: a reader sees at once what is missing, doubled or out of order.
InputEvents numbered(int first, int count);

// A type, code or value as a person writes it: a number (0x.. too), or a name; a key's value may be
// UP, DOWN or REPEAT. A name cut to 20 characters, as logs have it, will do. False: neither.
bool read_event(const std::string& type, const std::string& code, const std::string& value,
                InputEvent* event);

// A line of a touch log.
struct LoggedEvent {
  int64_t microseconds = 0;  // of its time stamp, since 0000-03-01, local
  bool second_touch = false;
  InputEvent event = {};
};

// False when the line is no event: a removed device, half a line.
bool read_log_line(const std::string& line, LoggedEvent* logged);
