#include "client/reader/span.h"

#include <errno.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <string_view>

#include "client/runs/runs.h"

namespace {

constexpr int64_t kWindow = 64 * 1024;
constexpr int64_t kLook = 4096;  // enough for some lines

// `count` bytes from `offset`, fewer at the end of the file.
std::string bytes_at(int fd, int64_t offset, int64_t count) {
  std::string bytes(static_cast<size_t>(count), '\0');
  size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t got =
        pread(fd, &bytes[done], bytes.size() - done, offset + static_cast<int64_t>(done));
    if (got == -1 && errno == EINTR) continue;
    if (got <= 0) break;
    done += static_cast<size_t>(got);
  }
  bytes.resize(done);
  return bytes;
}

struct StampedLine {
  LogStamp time = kNoStamp;
  int64_t offset = 0;
};

// The first or the last stamped line that begins in `bytes`, read at `offset`.
StampedLine search(std::string_view bytes, int64_t offset, StampParser* parser, bool last) {
  StampedLine found;
  size_t start = 0;
  if (offset != 0) start = bytes.find('\n') + 1;  // npos + 1 is 0
  if (offset != 0 && start == 0) return found;
  while (start < bytes.size()) {
    const LogStamp time = parser->parse(bytes.substr(start, 64));
    if (time != kNoStamp) found = {time, offset + static_cast<int64_t>(start)};
    const size_t end = bytes.find('\n', start);
    if ((found.time != kNoStamp && !last) || end == std::string_view::npos) break;
    start = end + 1;
  }
  return found;
}

// The first stamped line that begins after `from` and before `to`.
StampedLine stamp_after(int fd, int64_t from, int64_t to, StampParser* parser) {
  for (int64_t look = kLook; from < to; look = kWindow) {
    const StampedLine found = search(bytes_at(fd, from, look), from, parser, false);
    if (found.time != kNoStamp) return found.offset < to ? found : StampedLine();
    from += std::max<int64_t>(look - 64, 1);  // a stamp may be cut by the end of what was read
  }
  return {};
}

}  // namespace

bool opens_logcat(std::string_view bytes) {
  return bytes.substr(0, kLogcatOpening.size()) == kLogcatOpening;
}

LogStamp first_stamp(std::string_view bytes, StampParser parser) {
  return search(bytes, 0, &parser, false).time;
}

FileSpan read_span(int fd, int64_t bytes, StampParser parser) {
  FileSpan span;
  for (const int64_t look : {kLook, kWindow}) {
    const std::string head = bytes_at(fd, 0, look);
    if (span.first == kNoStamp) span.first = first_stamp(head, parser);
    const int64_t tail = std::max<int64_t>(0, bytes - look);
    if (span.last == kNoStamp)
      span.last = search(bytes_at(fd, tail, look), tail, &parser, true).time;
    if (span.first != kNoStamp && span.last != kNoStamp) break;
  }
  return span;
}

int64_t find_time(int fd, int64_t bytes, StampParser parser, LogStamp since) {
  int64_t before = 0;     // the line here is earlier, or the first one
  int64_t after = bytes;  // the line here is not earlier
  while (after - before > kWindow) {
    const int64_t middle = before + (after - before) / 2;
    const StampedLine line = stamp_after(fd, middle, after, &parser);
    if (line.time != kNoStamp && line.time < since) {
      before = line.offset;
    } else {
      after = middle;
    }
  }
  return before;
}
