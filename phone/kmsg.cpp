#include "phone/kmsg.h"

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>

#include "platform/linux/log_record.h"

static constexpr const char* kKmsg = "/dev/kmsg";
static constexpr const char* kClearedFile = "/dev/log/kernel.cleared";  // a sequence number
constexpr size_t kRecordMax = 8192;  // the kernel's own limit, CONSOLE_EXT_LOG_MAX

static int64_t clock_ns(clockid_t clock) {
  struct timespec now;
  clock_gettime(clock, &now);
  return now.tv_sec * INT64_C(1000000000) + now.tv_nsec;
}

bool parse_kmsg(std::string_view record, int64_t offset_ns, LogEntry* entry, uint64_t* sequence) {
  // By the kernel's level: emergency, alert, critical, error, warning, notice, info, debug.
  static constexpr int kPriorities[] = {7, 7, 7, 6, 5, 4, 4, 3};
  const size_t text_at = record.find(';');
  if (text_at == std::string_view::npos) return false;
  unsigned level;
  unsigned long long number, microseconds;
  if (sscanf(std::string(record.substr(0, text_at)).c_str(), "%u,%llu,%llu", &level, &number,
             &microseconds) != 3)
    return false;
  // Lines after the first are key=value notes for machines.
  std::string_view text = record.substr(text_at + 1);
  text = text.substr(0, text.find('\n'));
  const size_t colon = text.find(": ");
  *sequence = number;
  entry->buffer = "kernel";
  entry->time_ns = static_cast<int64_t>(microseconds) * 1000 + offset_ns;
  entry->pid = entry->tid = 0;
  entry->uid = 0;
  entry->priority = kPriorities[level & 7];
  entry->tag = colon == std::string_view::npos ? "" : std::string(text.substr(0, colon));
  entry->message = std::string(colon == std::string_view::npos ? text : text.substr(colon + 2));
  return true;
}

KmsgSource::KmsgSource() : fd_(open(kKmsg, O_RDONLY | O_NONBLOCK | O_CLOEXEC)) {
  cleared_ = strtoull(read_file(kClearedFile).c_str(), nullptr, 10);
}

bool KmsgSource::next(LogEntry* entry) {
  if (!fd_.ok()) return false;
  char record[kRecordMax];
  while (true) {
    const ssize_t n = read(fd_.get(), record, sizeof record);
    if (n < 0 && (errno == EPIPE || errno == EINTR)) continue;  // overwritten before it was read
    if (n <= 0) return false;
    const int64_t offset = clock_ns(CLOCK_REALTIME) - clock_ns(CLOCK_MONOTONIC);
    uint64_t sequence;
    if (parse_kmsg({record, static_cast<size_t>(n)}, offset, entry, &sequence) &&
        sequence >= cleared_)
      return true;
  }
}

void clear_kmsg() {
  Fd fd(open(kKmsg, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  if (!fd.ok()) return;
  char record[kRecordMax];
  uint64_t last = 0;
  LogEntry entry;
  ssize_t n;
  while ((n = read(fd.get(), record, sizeof record)) > 0 || (n < 0 && errno == EPIPE)) {
    if (n > 0) parse_kmsg({record, static_cast<size_t>(n)}, 0, &entry, &last);
  }
  write_file(kClearedFile, std::to_string(last + 1) + "\n", 0666);
}
