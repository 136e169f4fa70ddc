// The log buffers that are captured and dumped, in the order in which their logcats are started,
// dumped and ended.
#pragma once

constexpr const char* kLogBuffers[] = {"main", "events", "system", "radio", "crash", "kernel"};
constexpr int kLogBufferCount = sizeof(kLogBuffers) / sizeof(kLogBuffers[0]);
