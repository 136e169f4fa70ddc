// For any input from the kernel: a watch record is used only when it is complete and its name ends,
// and any event at any time becomes one line that fits its buffers.
#include <stdint.h>
#include <string.h>
#include <sys/inotify.h>

#include <algorithm>
#include <memory>

#include "fuzz/require.h"
#include "input/event_line.h"
#include "input/inotify_records.h"

namespace {

// A block that ends with the data: the sanitizer detects reads beyond it.
void check_records(const uint8_t* data, size_t size) {
  const auto bytes = std::make_unique<char[]>(size);
  std::copy_n(data, size, bytes.get());
  size_t room = size;
  for_each_named_record(bytes.get(), size, [&](uint32_t, const char* name) {
    const size_t used = sizeof(inotify_event) + strlen(name) + 1;
    require(name[0] != '\0' && used <= room);
    room -= used;
  });
}

void check_lines(const uint8_t* data, size_t size) {
  struct {
    uint16_t type, code;
    int32_t value;
    CivilTime when;
    long microseconds;
  } e = {};
  std::copy_n(data, std::min(size, sizeof(e)), reinterpret_cast<uint8_t*>(&e));
  char fields[kEventLineSize];
  require(format_event_fields(fields, e.type, e.code, e.value) == strlen(fields));
  require(fields[12] == ' ' && fields[33] == ' ' && fields[34] != ' ');  // column borders
  char stamp[kEventStampSize];
  require(format_event_stamp(stamp, e.when, e.microseconds) == strlen(stamp));
  require(strchr(fields, '\n') == nullptr && strchr(stamp, '\n') == nullptr);
}

}  // namespace

// Input: the result of a read of the watch; its bytes are also an event and its time.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  check_records(data, size);
  check_lines(data, size);
  return 0;
}
