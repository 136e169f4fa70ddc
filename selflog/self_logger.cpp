#include "selflog/self_logger.h"

#include <cutils/properties.h>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>

#include "base/beneath.h"
#include "base/local_time.h"
#include "base/process.h"
#include "base/scoped.h"
#include "base/text.h"
#include "base/text_writer.h"
#include "model/properties.h"
#include "selflog/log.h"

namespace {

constexpr size_t kLineSize = 1024;          // with its NUL
constexpr char kColumns[] = "%s|%s|%d:: ";  // how the formats of the daemon's messages begin
constexpr int64_t kRotationBytes = 10 * 1024 * 1024;
constexpr int kGenerations = 5;
// The modes of a file made at first use and of one made by a rotation differ on purpose.
constexpr mode_t kFirstOpenMode = 0777;
constexpr mode_t kRotatedMode = 0600;
constexpr int kOpenFlags = O_WRONLY | O_CREAT | O_APPEND;

// One of each per process: a child inherits the values of the moment of its fork. Threads share
// them without a lock; two that cross the limit together may both rotate.
std::atomic<int> s_log_fd{-1};
std::atomic<int64_t> s_written{0};

// By open(): opendir() allocates, and a handler may write its process's first line.
bool is_directory(const char* path) {
  return ScopedFd(open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC)).valid();
}

bool open_log() {
  if (!is_directory(kSelfLogDir) && loggersystem::logger_mkdir(kSelfLogDir) != 0) {
    LOG_ANDROID(ANDROID_LOG_DEBUG, "logger, cannot create file:%s", kSelfLogDir);
    return false;
  }
  const int fd = open_file_beneath(kSelfLogFile, kOpenFlags, kFirstOpenMode);
  if (fd < 0) {
    LOG_ANDROID(ANDROID_LOG_DEBUG, "logger, open file failed.:%s", kSelfLogFile);
    return false;
  }
  int none = -1;
  if (!s_log_fd.compare_exchange_strong(none, fd)) close(fd);  // another thread was first
  return true;
}

void generation_name(char (&out)[256], int generation) {
  if (generation == 0) {
    format_cut(out, "%s", kSelfLogFile);
  } else {
    format_cut(out, "%s.%d", kSelfLogFile, generation);
  }
}

// The descriptor keeps its number: a line that another thread writes meanwhile goes into the old or
// the new file, never into a file that got the number of a closed one.
void rotate_log() {
  for (int i = kGenerations - 1; i >= 0; i--) {
    char from[256];
    char to[256];
    generation_name(from, i);
    generation_name(to, i + 1);
    if (rename(from, to) != 0 && errno != ENOENT) {
      LOG_ANDROID(ANDROID_LOG_DEBUG, "while rotating log files");
    }
  }
  ScopedFd fd(open_file_beneath(kSelfLogFile, kOpenFlags, kRotatedMode));
  if (fd.valid()) {
    dup3(fd.get(), s_log_fd, O_CLOEXEC);
    s_written = 0;
  } else {
    close(s_log_fd.exchange(-1));
    LOG_ANDROID(ANDROID_LOG_DEBUG, "rotateLogs, open file failed.:%s", kSelfLogFile);
  }
}

// Writes "%y-%m-%d %H:%M:%S || harrowmossd [pid, tid] " and returns its length.
size_t write_prefix(char (&line)[kLineSize]) {
  const CivilTime now = local_civil_time(time(nullptr));
  const struct {
    int number;
    char after;
  } parts[] = {{now.year % 100, '-'}, {now.month, '-'},  {now.day, ' '},
               {now.hour, ':'},       {now.minute, ':'}, {now.second, ' '}};
  TextWriter out(line);
  for (const auto& part : parts) {
    out.signed_decimal(part.number, 2);
    out.put(part.after);
  }
  out.put("|| harrowmossd [");
  out.signed_decimal(own_pid(), 1);
  out.put(", ");
  out.signed_decimal(own_thread_id(), 1);
  out.put("] ");
  return out.finish();
}

// Appends `text` to the line, cut where the line is full, and returns the new length.
size_t append_cut(char (&line)[kLineSize], size_t length, const char* text) {
  if (text == nullptr) text = "(null)";  // as printf has it
  const size_t size = strnlen(text, sizeof(line) - 1 - length);
  memcpy(line + length, text, size);
  return length + size;
}

// Appends `before`, the number and `after`.
size_t append_number(char (&line)[kLineSize], size_t length, char before, int number,
                     const char* after) {
  char text[32];
  TextWriter out(text);
  out.put(before);
  out.signed_decimal(number, 1);
  out.put(after);
  out.finish();
  return append_cut(line, length, text);
}

size_t append_names(char (&line)[kLineSize], size_t length, const char* source,
                    const char* function) {
  length = append_cut(line, length, source);
  length = append_cut(line, length, "|");
  return append_cut(line, length, function);
}

// The message as printf would put it, but the columns in front of every message of the daemon, and
// a text that is ready, by hand: printf takes as long over them as the kernel over the write.
// Returns the new length, cut where the line is full; -1 for a bad format.
ssize_t append_message(char (&line)[kLineSize], size_t length, const char* fmt, va_list args) {
  if (starts_with(fmt, kColumns)) {
    fmt += sizeof(kColumns) - 1;
    const char* source = va_arg(args, const char*);
    length = append_names(line, length, source, va_arg(args, const char*));
    length = append_number(line, length, '|', va_arg(args, int), ":: ");
  }
  if (strcmp(fmt, "%s") == 0)
    return static_cast<ssize_t>(append_cut(line, length, va_arg(args, const char*)));
  const int wanted = vsnprintf(line + length, sizeof(line) - length, fmt, args);
  if (wanted < 0) return -1;
  return static_cast<ssize_t>(std::min(length + static_cast<size_t>(wanted), sizeof(line) - 1));
}

// Makes the directory `path`. False after a line in the Android log.
bool make_store_directory(const char* path) {
  LOG_ANDROID(ANDROID_LOG_DEBUG, "logger_mkdir: %s is not exist, creat it!", path);
  const MkdirStep failed = make_shared_directory(path);
  if (failed == MkdirStep::kDone) return true;
  const char* step = failed == MkdirStep::kMkdir   ? "mkdir"
                     : failed == MkdirStep::kChown ? "chown"
                                                   : "chmod";
  LOG_ANDROID(ANDROID_LOG_DEBUG, "logger_mkdir: %s fail! %s", step, strerror(errno));
  return false;
}

}  // namespace

int loggersystem::logger(const char* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  const int result = vlogger(fmt, args);
  va_end(args);
  return result;
}

int loggersystem::vlogger(const char* fmt, va_list args) {
  char enable[PROPERTY_VALUE_MAX];
  property_get(kSelfLogProp, enable, "off");
  if (!starts_with(enable, "on")) return -1;
  if (s_log_fd < 0 && !open_log()) return -1;

  char line[kLineSize];
  const size_t prefix = write_prefix(line);
  const ssize_t end = append_message(line, prefix, fmt, args);
  if (end <= static_cast<ssize_t>(prefix)) return -1;
  size_t length = static_cast<size_t>(end);
  if (memchr(line, '\n', length) == nullptr) {
    if (length > sizeof(line) - 2) length = sizeof(line) - 2;  // room for the newline: 1023 bytes
    line[length++] = '\n';
  }
  (void)!write(s_log_fd, line, length);
  if ((s_written += static_cast<int64_t>(length)) >= kRotationBytes) rotate_log();
  return 0;
}

int loggersystem::logger_mkdir(const char* path) {
  if (path == nullptr) return -1;
  if (is_directory(path)) return 0;
  char buffer[256];
  const size_t length = copy_or_abort(buffer, path);
  if (length == 0 || buffer[length - 1] != '/') append_or_abort(buffer, "/");
  for (char* slash = strchr(buffer + 1, '/'); slash != nullptr; slash = strchr(slash + 1, '/')) {
    *slash = '\0';
    const bool missing = strcmp(buffer, kSdcard) != 0 && access(buffer, F_OK) != 0;
    if (missing && !make_store_directory(buffer)) return -1;
    *slash = '/';
  }
  return 0;
}

void log_message(int priority, const char* source, const char* function, int line, const char* fmt,
                 ...) {
  const int saved_errno = errno;
  char text[kLineSize];  // what either log keeps of a message is shorter
  va_list args;
  va_start(args, fmt);
  vsnprintf(text, sizeof(text), fmt, args);
  va_end(args);
  char message[kLineSize];  // "source|function|line~parent:: text"; the Android log cuts there too
  size_t length = append_names(message, 0, source, function);
  length = append_number(message, length, '|', line, "");
  length = append_number(message, length, '~', parent_pid(), ":: ");
  length = append_cut(message, length, text);
  message[length] = '\0';
  LOG_ANDROID(priority, "%s", message);
  loggersystem::logger("%s|%s|%d:: %s", source, function, line, text);
  errno = saved_errno;
}
