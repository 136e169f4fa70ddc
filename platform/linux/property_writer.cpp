// property_set(): its rules, its lock and what it leaves on disk. Nothing here allocates.
#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include "base/scoped.h"
#include "platform/linux/property_map.h"

namespace {

constexpr char kPropertiesLog[] = "/dev/bench/properties.log";
constexpr char kPersistentDirectory[] = "/data/property";
constexpr char kPersistentNew[] = "/data/property/persistent_properties.tmp";

constexpr char kReadOnlyPrefix[] = "ro.";
// What the platform's reader shows instead of a value that does not fit into 92 bytes.
constexpr char kLongValueText[] = "Must use __system_property_read_callback() to read";
static_assert(sizeof(kLongValueText) == 50 + 1, "the platform's own text");

bool begins_with(const char* text, const char* prefix) {
  return strncmp(text, prefix, strlen(prefix)) == 0;
}

bool legal_key(const char* key) {
  static constexpr char kAllowed[] =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._:@-";
  const size_t length = strlen(key);
  return length > 0 && key[0] != '.' && key[length - 1] != '.' && strstr(key, "..") == nullptr &&
         strspn(key, kAllowed) == length;
}

// A handler that sets a property must not run while its own thread holds the lock.
class AllSignalsBlocked {
 public:
  AllSignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &previous_);
  }
  ~AllSignalsBlocked() { pthread_sigmask(SIG_SETMASK, &previous_, nullptr); }
  AllSignalsBlocked(const AllSignalsBlocked&) = delete;
  AllSignalsBlocked& operator=(const AllSignalsBlocked&) = delete;

 private:
  sigset_t previous_;
};

// One writer at a time. The file is opened anew for each set: a lock belongs to an open file, and
// threads, or a parent and its child, that shared one would not exclude each other. Unlocked by
// name as well as closed, since a child forked meanwhile has a copy of the descriptor.
class WriterLock {
 public:
  explicit WriterLock(const char* root)
      : fd_(open(RootedPath(root, kPropertyLock).text(), O_RDWR | O_CLOEXEC)) {
    if (!fd_.valid()) return;
    int result;
    do {
      result = flock(fd_.get(), LOCK_EX);
    } while (result != 0 && errno == EINTR);
    if (result != 0) fd_.reset();
  }
  ~WriterLock() {
    if (held()) flock(fd_.get(), LOCK_UN);
  }
  bool held() const { return fd_.valid(); }

 private:
  ScopedFd fd_;
};

// A value as it stands in files of lines: backslash and newline are escaped.
class EscapedValue {
 public:
  explicit EscapedValue(const char* value) : size_(0) {
    for (; *value != '\0'; ++value) {
      const bool special = *value == '\n' || *value == '\\';
      if (special) text_[size_++] = '\\';
      text_[size_++] = *value == '\n' ? 'n' : *value;
    }
  }
  const char* text() const { return text_; }
  size_t size() const { return size_; }

 private:
  char text_[2 * kPropertyValueMax];
  size_t size_;
};

iovec part(const char* text, size_t size) {
  return {const_cast<char*>(text), size};
}

// `number` in decimal at the end of `buffer`; its first character. (snprintf may not be called in
// a signal handler.)
const char* decimal(pid_t number, char (&buffer)[12]) {
  char* at = buffer + sizeof(buffer) - 1;
  *at = '\0';
  do {
    *--at = static_cast<char>('0' + number % 10);
    number /= 10;
  } while (number != 0);
  return at;
}

// Cuts the file back to the end of its last line. A write that SIGKILL interrupts stops at the next
// page, so a killed writer may leave the beginning of a line.
void drop_unfinished_line(int fd) {
  const off_t size = lseek(fd, 0, SEEK_END);
  off_t end = size;  // of the last line, once found
  char block[512];
  for (size_t wanted = 1; end > 0; wanted = sizeof(block)) {  // a look at the last byte is enough
    if (static_cast<off_t>(wanted) > end) wanted = static_cast<size_t>(end);
    const off_t start = end - static_cast<off_t>(wanted);
    if (pread(fd, block, wanted, start) != static_cast<ssize_t>(wanted)) return;
    const void* newline = memrchr(block, '\n', wanted);
    end = start;
    if (newline != nullptr) {
      end += static_cast<const char*>(newline) - block + 1;
      break;
    }
  }
  if (end != size) (void)!ftruncate(fd, end);
}

void append_to_log(const char* root, const char* key, const char* value) {
  const ScopedFd fd(
      open(RootedPath(root, kPropertiesLog).text(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0666));
  if (!fd.valid()) return;
  drop_unfinished_line(fd.get());
  char buffer[12];
  const char* pid = decimal(getpid(), buffer);
  const EscapedValue escaped(value);
  const iovec parts[] = {part(pid, strlen(pid)),
                         part(" ", 1),
                         part(key, strlen(key)),
                         part("=", 1),
                         part(escaped.text(), escaped.size()),
                         part("\n", 1)};
  (void)!writev(fd.get(), parts, sizeof(parts) / sizeof(parts[0]));
}

// Collects lines into few writes.
class LineWriter {
 public:
  explicit LineWriter(int fd) : fd_(fd), used_(0), good_(true) {}
  void line(const char* key, const char* value) {
    const EscapedValue escaped(value);
    put(key, strlen(key));
    put("=", 1);
    put(escaped.text(), escaped.size());
    put("\n", 1);
  }
  bool finish() {
    flush();
    return good_;
  }

 private:
  void put(const char* text, size_t size) {
    while (size > 0) {
      const size_t room = sizeof(buffer_) - used_;
      const size_t now = size < room ? size : room;
      memcpy(buffer_ + used_, text, now);
      used_ += now;
      text += now;
      size -= now;
      if (used_ == sizeof(buffer_)) flush();
    }
  }
  void flush() {
    for (size_t done = 0; good_ && done < used_;) {
      const ssize_t written = write(fd_, buffer_ + done, used_ - done);
      good_ = written > 0;
      if (good_) done += static_cast<size_t>(written);
    }
    used_ = 0;
  }

  int fd_;
  size_t used_;
  bool good_;
  char buffer_[2048];
};

// Writes all persistent properties, with `key` at its coming value, beside the old file and
// renames. When that fails (no /data yet, disk full) the old file stays; the set itself goes on, as
// on the platform.
void save_persistent(const PropertyMap* map, const char* root, const char* key, const char* value) {
  const RootedPath directory(root, kPersistentDirectory);
  const RootedPath fresh(root, kPersistentNew);
  mkdir(directory.text(), 0700);
  const ScopedFd fd(open(fresh.text(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
  if (!fd.valid()) return;
  LineWriter writer(fd.get());
  map->for_each([&](const PropertyEntry& entry) {
    if (!begins_with(entry.key, kPersistentPrefix) || strcmp(entry.key, key) == 0) return;
    char other[kPropertyValueMax + 1];
    read_property_entry(entry, other);
    writer.line(entry.key, other);
  });
  writer.line(key, value);
  const RootedPath saved(root, kPersistentProperties);
  if (!writer.finish() || fsync(fd.get()) != 0 || rename(fresh.text(), saved.text()) != 0) {
    unlink(fresh.text());
    return;
  }
  const ScopedFd parent(open(directory.text(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (parent.valid()) fsync(parent.get());  // or the rename itself is lost with the power
}

}  // namespace

int write_property(PropertyMap* map, const char* root, const char* key, const char* value,
                   bool record) {
  if (key == nullptr || !legal_key(key)) return -1;
  const bool read_only = begins_with(key, kReadOnlyPrefix);
  if (value == nullptr) value = "";
  if (strlen(value) > kPropertyValueMax) {
    if (!read_only) return -1;
    value = kLongValueText;
  }

  const AllSignalsBlocked blocked;
  const WriterLock lock(root);
  if (!lock.held()) return -1;
  PropertyEntry* entry = const_cast<PropertyEntry*>(find_property(map, key));
  if (entry != nullptr ? read_only : !property_fits(map, key)) return -1;
  // Before the value shows: whoever sees it may count on finding it in the log and on disk.
  if (record) append_to_log(root, key, value);
  if (record && begins_with(key, kPersistentPrefix)) save_persistent(map, root, key, value);
  if (entry != nullptr) {
    replace_property_value(entry, value);
  } else {
    add_property(map, key, value);
  }
  announce_property_change(map);
  return 0;
}
