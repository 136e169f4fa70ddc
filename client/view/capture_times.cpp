#include "client/view/capture_times.h"

#include <errno.h>
#include <string.h>
#include <unistd.h>

#include <vector>

namespace {

constexpr size_t kFileHeader = 24;
constexpr size_t kPacketHeader = 16;  // seconds, fraction, bytes here, bytes on the wire
constexpr uint32_t kPacketMax = 1 << 20;
constexpr uint32_t kMicros = 0xa1b2c3d4;
constexpr uint32_t kNanos = 0xa1b23c4d;

class BytesOf {
 public:
  explicit BytesOf(int fd) : fd_(fd), bytes_(64 * 1024) {}

  // Copies the next `count` bytes to `to`, or skips them when it is null. False at the end.
  bool take(void* to, size_t count) {
    for (auto* out = static_cast<char*>(to); count > 0;) {
      if (at_ == end_ && !fill()) return false;
      const size_t part = count < end_ - at_ ? count : end_ - at_;
      if (out != nullptr) memcpy(out, &bytes_[at_], part);
      if (out != nullptr) out += part;
      at_ += part;
      count -= part;
    }
    return true;
  }

 private:
  bool fill() {
    ssize_t got;
    do {
      got = read(fd_, bytes_.data(), bytes_.size());
    } while (got == -1 && errno == EINTR);
    at_ = 0;
    end_ = got > 0 ? static_cast<size_t>(got) : 0;
    return got > 0;
  }

  int fd_;
  std::vector<char> bytes_;
  size_t at_ = 0;
  size_t end_ = 0;
};

}  // namespace

void read_capture(int fd, const std::function<void(int64_t)>& packet) {
  BytesOf bytes(fd);
  uint32_t header[kFileHeader / 4];
  if (!bytes.take(header, sizeof header)) return;
  const auto swapped = [](uint32_t value) { return __builtin_bswap32(value); };
  const bool other = header[0] != kMicros && header[0] != kNanos;  // the other byte order
  const uint32_t magic = other ? swapped(header[0]) : header[0];
  if (magic != kMicros && magic != kNanos) return;
  for (uint32_t fields[kPacketHeader / 4]; bytes.take(fields, sizeof fields);) {
    for (uint32_t& field : fields) field = other ? swapped(field) : field;
    const int64_t fraction = magic == kNanos ? fields[1] / 1000 : fields[1];
    if (fields[2] > kPacketMax || fraction >= 1000000) return;
    packet(int64_t{fields[0]} * 1000000 + fraction);
    if (!bytes.take(nullptr, fields[2])) return;
  }
}
