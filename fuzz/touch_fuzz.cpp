// Whatever the kernel tells the touch recorder: a record of the watch is followed only when it is
// whole and its name ends, and any event at all becomes the line that printf would make of it.
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/inotify.h>

#include <algorithm>
#include <memory>
#include <string>

#include "fuzz/require.h"
#include "input/event_line.h"
#include "input/event_names.h"
#include "input/inotify_records.h"

namespace {

void check_records(const uint8_t* data, size_t size) {
  const auto bytes = std::make_unique<char[]>(size);  // a block that ends where the read did
  memcpy(bytes.get(), data, size);
  size_t room = size;
  for_each_named_record(bytes.get(), size, [&](uint32_t, const char* name) {
    const size_t used = sizeof(inotify_event) + strlen(name) + 1;
    require(name[0] != '\0' && used <= room);
    room -= used;
  });
}

struct event {
  uint16_t type;
  uint16_t code;
  int32_t value;
};

void check_fields(const event& e) {
  char line[kEventLineSize];
  char expected[3][64];
  const char* type = event_type_name(e.type);
  const char* code = event_code_name(e.type, e.code);
  const char* value = e.type == 1 ? key_value_name(e.value) : nullptr;  // 1: EV_KEY
  snprintf(expected[0], 64, "%-12.12s", type ? type : "");
  if (type == nullptr) snprintf(expected[0], 64, "%04x        ", e.type);
  snprintf(expected[1], 64, " %-20.20s", code ? code : "");
  if (code == nullptr) snprintf(expected[1], 64, " %04x                ", e.code);
  snprintf(expected[2], 64, " %-20.20s", value ? value : "");
  if (value == nullptr) snprintf(expected[2], 64, " %d            ", e.value);
  const size_t length = format_event_fields(line, e.type, e.code, e.value);
  require(length == strlen(line));
  require(line == std::string(expected[0]) + expected[1] + expected[2]);
}

void check_stamp(const civil_time& when, long microseconds) {
  char stamp[kEventStampSize];
  char expected[kEventStampSize];
  require(format_event_stamp(stamp, when, microseconds) == strlen(stamp));
  const int numbers[] = {when.year, when.month, when.day, when.hour, when.minute, when.second};
  for (const int number : numbers) {
    if (number < 0) return;  // printf counts the sign as a digit; no clock has such a number
  }
  snprintf(expected, sizeof(expected), "%04d-%02d-%02d %02d:%02d:%02d:%ld  ", when.year, when.month,
           when.day, when.hour, when.minute, when.second, microseconds);
  require(strcmp(stamp, expected) == 0);
}

}  // namespace

// Input: what a read of the watch gave; its bytes are also an event, and a clock's numbers.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  check_records(data, size);
  struct {
    event e;
    civil_time when;
    long microseconds;
  } numbers = {};
  memcpy(&numbers, data, std::min(size, sizeof(numbers)));
  check_fields(numbers.e);
  check_stamp(numbers.when, numbers.microseconds);
  return 0;
}
