#include <android/log.h>
#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <sys/auxv.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>

#include <atomic>

#include "platform/linux/bench_phone.h"
#include "platform/linux/log_record.h"

namespace {

constexpr size_t kMessageSize = 1024;  // with its NUL: the platform's LOG_BUF_SIZE
constexpr size_t kBufferCount = sizeof(kLogBuffers) / sizeof(kLogBuffers[0]);

// Descriptor + 1 of each buffer, so that zero means "not open yet".
std::atomic<int> s_open_buffers[kBufferCount];

// The platform's C library remembers both ids of a caller; here they would cost every record two
// system calls. 0: not asked in this process yet; every fork() corrects it in the child.
std::atomic<pid_t> s_pid{0};
const pthread_t s_first_thread = pthread_self();  // static initialisation runs on it
const bool s_fork_is_noticed = pthread_atfork(nullptr, nullptr, [] { s_pid = getpid(); }) == 0;

void put_ids(LogRecord* record) {
  pid_t known = s_pid.load(std::memory_order_relaxed);
  record->pid = known != 0 ? known : getpid();
  // A handler may have forked since: what the child of that fork has put there stays.
  if (known == 0 && s_fork_is_noticed && !s_pid.compare_exchange_strong(known, record->pid))
    record->pid = known;
  const bool first = pthread_equal(pthread_self(), s_first_thread) != 0;
  record->tid = first ? record->pid : gettid();
}

// The descriptor of buffer `index`, opened by the first caller and kept, or a negative errno value.
int buffer_descriptor(size_t index) {
  std::atomic<int>& kept = s_open_buffers[index];
  int known = kept.load(std::memory_order_acquire);
  if (known != 0) return known - 1;

  char path[64];
  size_t used = 0;
  const char* const path_parts[] = {kLogDirectory, "/", kLogBuffers[index]};
  for (const char* part : path_parts) {
    const size_t length = strlen(part);
    memcpy(path + used, part, length + 1);
    used += length;
  }
  const int fd = open(path, O_WRONLY | O_APPEND | O_CLOEXEC);
  if (fd < 0) return -errno;
  if (kept.compare_exchange_strong(known, fd + 1, std::memory_order_acq_rel)) return fd;
  close(fd);  // another thread, or a handler in this one, was first
  return known - 1;
}

int find_buffer(const char* name) {
  for (size_t i = 0; i < kBufferCount; i++) {
    if (strcmp(kLogBuffers[i], name) == 0) return static_cast<int>(i);
  }
  return -1;
}

}  // namespace

int write_log_record(const char* buffer, int priority, const char* tag, const char* message,
                     size_t message_size) {
  const int saved_errno = errno;
  const int index = find_buffer(buffer);
  if (index < 0) return -EINVAL;
  const int fd = buffer_descriptor(static_cast<size_t>(index));
  if (fd < 0) {
    errno = saved_errno;
    return fd;
  }
  if (tag == nullptr) tag = "";
  const size_t tag_size = strnlen(tag, kLogPayloadMax - 2);  // leaves room for both NULs
  const size_t room = kLogPayloadMax - 2 - tag_size;
  if (message_size > room) message_size = room;
  const size_t payload = tag_size + 1 + message_size + 1;
  const size_t padding = (4 - payload % 4) % 4;

  timespec now = {};
  clock_gettime(CLOCK_REALTIME, &now);
  LogRecord record = {};
  record.magic = kLogRecordMagic;
  record.size = static_cast<uint16_t>(payload);
  record.priority = static_cast<uint8_t>(priority);
  record.uid_low = static_cast<uint8_t>(getauxval(AT_UID));  // as of exec: costs no system call
  put_ids(&record);
  record.sec = static_cast<uint32_t>(now.tv_sec);
  record.nsec = static_cast<uint32_t>(now.tv_nsec);

  char zeros[4] = {};
  const iovec parts[] = {
      {&record, sizeof(record)},
      {const_cast<char*>(tag), tag_size},
      {zeros, 1},
      {const_cast<char*>(message), message_size},
      {zeros, 1 + padding},
  };
  const ssize_t written = writev(fd, parts, sizeof(parts) / sizeof(parts[0]));
  const int result = written < 0 ? -errno : static_cast<int>(written);
  errno = saved_errno;
  return result;
}

int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
  const int saved_errno = errno;  // for %m, and for callers that log before they look at it
  require_bench_phone();
  char message[kMessageSize];
  va_list args;
  va_start(args, fmt);
  errno = saved_errno;
  const int length = vsnprintf(message, sizeof(message), fmt, args);
  va_end(args);
  size_t size = length < 0 ? 0 : static_cast<size_t>(length);
  if (size > kMessageSize - 1) size = kMessageSize - 1;
  const int result = write_log_record("main", prio, tag, message, size);
  errno = saved_errno;
  return result;
}
