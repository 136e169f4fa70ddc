// Deadlines of waits, on the monotonic clock.
#pragma once

#include <stdint.h>

#include <algorithm>
#include <chrono>

using SteadyTime = std::chrono::steady_clock::time_point;

inline SteadyTime after(std::chrono::milliseconds wait) {
  return std::chrono::steady_clock::now() + wait;
}

// Milliseconds until `deadline` for poll(), rounded up; 0 when it has passed.
inline int left_ms(SteadyTime deadline) {
  const auto left =
      std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
  return static_cast<int>(std::clamp<int64_t>(left.count(), 0, 1 << 30));
}
