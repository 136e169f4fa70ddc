// When packets were captured.
#pragma once

#include <stdint.h>

#include <functional>

// Reads a pcap file from `fd` and calls `packet` with each packet's time, in microseconds since
// 1970 (UTC). Stops at the first invalid packet.
void read_capture(int fd, const std::function<void(int64_t micros)>& packet);
