// When packets were captured.
#pragma once

#include <stdint.h>

#include <functional>

// Reads the capture file that comes from `fd` and calls `packet` with each packet's time, in
// microseconds since 1970 (UTC). Ends at the first thing that is no packet.
void read_capture(int fd, const std::function<void(int64_t micros)>& packet);
