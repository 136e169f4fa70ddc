#include "capture/fingerprint_dir.h"

#include <atomic>

#include "base/text.h"

namespace {

// Two buffers in turn: the thread may still read the one that is shown while the other is written.
// It looks for milliseconds, starts lie seconds apart.
char s_dirs[2][256];
std::atomic<int> s_shown{0};

}  // namespace

const char* fingerprint_log_dir() {
  return s_dirs[s_shown.load(std::memory_order_acquire)];
}

void set_fingerprint_log_dir(const char* dir) {
  const int next = 1 - s_shown.load(std::memory_order_relaxed);
  copy_or_abort(s_dirs[next], dir);
  s_shown.store(next, std::memory_order_release);
}
