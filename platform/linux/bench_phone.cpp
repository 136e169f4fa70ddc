#include "platform/linux/bench_phone.h"

#include <string.h>
#include <unistd.h>

#include <atomic>

namespace {

constexpr int kNotABenchPhone = 125;  // what env(1) and chroot(1) use when they themselves fail
constexpr char kRefusal[] =
    "harrowmoss: this is not a bench phone (no /dev/bench/marker); refusing to touch this "
    "machine\n";

}  // namespace

void require_bench_phone() {
  static std::atomic<bool> known{false};
  if (known.load(std::memory_order_relaxed)) return;
  if (access(kBenchPhoneMarker, F_OK) == 0) {
    known.store(true, std::memory_order_relaxed);
    return;
  }
  (void)!write(STDERR_FILENO, kRefusal, strlen(kRefusal));
  _exit(kNotABenchPhone);
}
