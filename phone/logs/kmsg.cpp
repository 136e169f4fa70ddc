#include "phone/logs/kmsg.h"

#include <fcntl.h>
#include <poll.h>
#include <stdio.h>
#include <time.h>

#include <algorithm>

#include "phone/logs/buffers.h"
#include "phone/util.h"
#include "platform/linux/log_record.h"

namespace {

constexpr const char* kKmsg = "/dev/kmsg";
constexpr size_t kRecordMax = 8192;  // the kernel's CONSOLE_EXT_LOG_MAX

int64_t clock_ns(clockid_t clock) {
  struct timespec now;
  clock_gettime(clock, &now);
  return now.tv_sec * INT64_C(1000000000) + now.tv_nsec;
}

}  // namespace

bool parse_kmsg(std::string_view record, int64_t offset_ns, LogEntry* entry) {
  // By the kernel's level: emergency, alert, critical, error, warning, notice, info, debug.
  static constexpr int kPriorities[] = {7, 7, 7, 6, 5, 4, 4, 3};
  const size_t text_at = record.find(';');
  if (text_at == std::string_view::npos) return false;
  unsigned level;
  unsigned long long number, microseconds;
  if (sscanf(std::string(record.substr(0, text_at)).c_str(), "%u,%llu,%llu", &level, &number,
             &microseconds) != 3)
    return false;
  // Lines after the first are key=value pairs.
  std::string_view text = record.substr(text_at + 1);
  text = text.substr(0, text.find('\n'));
  const size_t colon = text.find(": ");
  entry->buffer = "kernel";
  entry->time_ns = static_cast<int64_t>(microseconds) * 1000 + offset_ns;
  entry->pid = entry->tid = 0;
  entry->uid = 0;
  entry->priority = kPriorities[level & 7];
  entry->tag = colon == std::string_view::npos ? "" : std::string(text.substr(0, colon));
  entry->message = std::string(colon == std::string_view::npos ? text : text.substr(colon + 2));
  return true;
}

namespace {

std::string log_record(const LogEntry& entry) {
  constexpr int64_t kSecond = 1000000000;
  std::string payload = entry.tag + '\0' + entry.message;
  payload.resize(std::min(payload.size(), kLogPayloadMax - 1) + 1);  // with the NUL
  LogRecord record = {};
  record.magic = kLogRecordMagic;
  record.size = static_cast<uint16_t>(payload.size());
  record.priority = static_cast<uint8_t>(entry.priority);
  record.sec = static_cast<uint32_t>(entry.time_ns / kSecond);
  record.nsec = static_cast<uint32_t>(entry.time_ns % kSecond);
  payload.resize((payload.size() + 3) & ~size_t{3});
  return std::string(reinterpret_cast<const char*>(&record), sizeof record) + payload;
}

}  // namespace

void copy_kmsg() {
  const Fd kmsg(open(kKmsg, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  const Fd buffer(open(log_buffer_path("kernel").c_str(), O_WRONLY | O_APPEND | O_CLOEXEC));
  struct pollfd readable = {kmsg.get(), POLLIN, 0};
  bool live = false;
  while (kmsg.ok() && buffer.ok()) {
    char record[kRecordMax];
    const ssize_t n = read(kmsg.get(), record, sizeof record);
    if (n < 0 && errno == EAGAIN) {
      live = true;
      poll(&readable, 1, -1);
      continue;
    }
    if (n < 0 && (errno == EPIPE || errno == EINTR))
      continue;  // EPIPE: overwritten before it was read
    if (n <= 0) return;
    const int64_t now = clock_ns(CLOCK_REALTIME);
    LogEntry entry;
    if (!parse_kmsg({record, static_cast<size_t>(n)}, now - clock_ns(CLOCK_MONOTONIC), &entry))
      continue;
    // The kernel's clock drifts: an older time would make a resuming logcat skip the line.
    entry.time_ns = live ? now : std::min(entry.time_ns, now);
    const std::string copy = log_record(entry);
    (void)!write(buffer.get(), copy.data(), copy.size());
  }
}
