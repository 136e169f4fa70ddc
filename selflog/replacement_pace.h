// How soon something that ended by itself is started again.
#pragma once

#include <stdint.h>

#include <algorithm>

// Three replacements within ten seconds come at once, further ones a second apart: a program that
// dies at once would otherwise fork hundreds of times a second and flood the log.
class ReplacementPace {
 public:
  // Milliseconds to wait at `now_ms` before the next replacement, which is taken as done then.
  int next_delay_ms(int64_t now_ms) {
    const bool crowded = now_ms - done_ms_[0] < kWindowMs;
    const int64_t at = crowded ? std::max(now_ms, done_ms_[kAtOnce - 1] + kSlowMs) : now_ms;
    std::rotate(done_ms_, done_ms_ + 1, done_ms_ + kAtOnce);
    done_ms_[kAtOnce - 1] = at;
    return static_cast<int>(at - now_ms);
  }

 private:
  static constexpr int kAtOnce = 3;
  static constexpr int64_t kWindowMs = 10 * 1000;
  static constexpr int64_t kSlowMs = 1000;
  int64_t done_ms_[kAtOnce] = {-kWindowMs, -kWindowMs, -kWindowMs};  // oldest first
};
