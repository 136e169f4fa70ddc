// The text of one recorded input event. Values in, text out; docs/touch-log.md shows the result.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "base/local_time.h"

// Time stamp of a line, "2024-03-09 07:05:02:41307  ": the microseconds are not padded. Puts it
// with its NUL into `text` and returns its length.
constexpr size_t kEventStampSize = 96;  // for any numbers at all
size_t format_event_stamp(char (&text)[kEventStampSize], const CivilTime& when, long microseconds);

// Marker of the device: "  second  " for the second touch device, else ten blanks.
const char* event_device_marker(bool second_touch);

// Type, code and value, each with the blanks that make its column. Puts them with a NUL into `line`
// and returns the length.
constexpr size_t kEventLineSize = 128;
size_t format_event_fields(char (&line)[kEventLineSize], uint16_t type, uint16_t code,
                           int32_t value);
