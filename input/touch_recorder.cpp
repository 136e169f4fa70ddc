#include "input/touch_recorder.h"

#include <android/log.h>
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <linux/input.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/inotify.h>
#include <sys/ioctl.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <iterator>
#include <new>

#include "base/scoped.h"
#include "base/text.h"
#include "input/event_line.h"
#include "input/event_saver.h"
#include "input/inotify_records.h"

namespace {

constexpr char kDeviceDir[] = "/dev/input";
constexpr char kEventFile[] = "/event";  // appended to the output directory

constexpr size_t kOutputDirSize = 256;     // the caller's buffer
constexpr size_t kIdentitySize = 79;       // asked of the device, without our NUL
constexpr size_t kNotifyBufferSize = 512;  // one read of the watch

// The interface's value for a removal that the watch reports: kSayWhenMissing, kRecordRemoval, and
// two bits that close_device() ignores.
constexpr int kRemovalFlags = 0x10007;

// A device is recorded when its name contains one of these.
constexpr const char* kAcceptedNames[] = {
    "zelka_goodix_ts", "cypress_touchkey", "zelka_synap",           "himax",
    "front_touch",     "second_touch",     "zelka_tgk_aw_sar0_ch0", "zelka_tgk_aw_sar1_ch0",
};
constexpr char kSecondTouchName[] = "second_touch";

static_assert(sizeof(input_event) == 24,
              "an event is read as the kernel of a 64-bit phone sends it");

std::atomic<int> s_recording{0};

// Entry 0 of the poll set is the watch on /dev/input, the others are devices, with their paths in
// the other array. Recorder's thread only.
pollfd* s_poll_set = nullptr;
char** s_device_paths = nullptr;  // entry 0 is not used
int s_device_count = 1;           // entries of the poll set
int s_second_touch = -1;          // entry of the second touch device; -1: none
EventSaver* s_event_file = nullptr;

#define LOG_UNTAGGED(...) __android_log_print(ANDROID_LOG_ERROR, "", __VA_ARGS__)

// stdio would take a lock that a fork may have copied in the locked state.
#define SAY(...) dprintf(STDERR_FILENO, __VA_ARGS__)

using Identity = char[kIdentitySize + 1];

// Empty when the device does not answer.
void ask_identity(int fd, unsigned long request, Identity& answer) {
  memset(answer, 0, sizeof(answer));
  if (ioctl(fd, request, answer) < 1) answer[0] = '\0';
}

bool is_accepted(const char* name) {
  return std::any_of(std::begin(kAcceptedNames), std::end(kAcceptedNames),
                     [name](const char* part) { return strstr(name, part) != nullptr; });
}

// The entry of `path` in the poll set, -1 for none.
int find_device(const char* path) {
  for (int i = 1; i < s_device_count; i++) {
    if (strcmp(s_device_paths[i], path) == 0) return i;
  }
  return -1;
}

// False when memory is short; the tables are unchanged then.
bool add_device(int fd, const char* path) {
  const size_t entries = static_cast<size_t>(s_device_count) + 1;
  auto* poll_set = static_cast<pollfd*>(realloc(s_poll_set, entries * sizeof(pollfd)));
  if (poll_set != nullptr) s_poll_set = poll_set;
  auto** paths = static_cast<char**>(realloc(s_device_paths, entries * sizeof(char*)));
  if (paths != nullptr) s_device_paths = paths;
  char* copy = strdup(path);
  if (poll_set == nullptr || paths == nullptr || copy == nullptr) {
    free(copy);
    return false;
  }
  s_poll_set[s_device_count] = {fd, POLLIN, 0};  // not polled yet: nothing to read
  s_device_paths[s_device_count] = copy;
  s_device_count++;
  return true;
}

// Closes the gap in both tables; the second touch device keeps its mark whichever entry goes.
void remove_device(int index) {
  free(s_device_paths[index]);
  std::move(s_device_paths + index + 1, s_device_paths + s_device_count, s_device_paths + index);
  std::move(s_poll_set + index + 1, s_poll_set + s_device_count, s_poll_set + index);
  s_device_count--;
  if (s_second_touch == index) {
    s_second_touch = -1;
  } else if (s_second_touch > index) {
    s_second_touch--;
  }
}

using DevicePath = char[sizeof(kDeviceDir) + 1 + NAME_MAX];

void compose_device_path(DevicePath& path, const char* name) {
  format_cut(path, "%s/%s", kDeviceDir, name);
}

// False, after a message, when /dev/input cannot be listed.
bool scan_devices() {
  ScopedDir dir(opendir(kDeviceDir));
  if (!dir.valid()) {
    SAY("scan dir failed for %s\n", kDeviceDir);
    return false;
  }
  while (const dirent* entry = readdir(dir.get())) {
    if (strcmp(entry->d_name, ".") == 0 || strcmp(entry->d_name, "..") == 0) continue;
    DevicePath path;
    compose_device_path(path, entry->d_name);
    open_device(path);
  }
  return true;
}

// One record of the watch; `name` has its NUL.
void follow_change(uint32_t mask, const char* name) {
  DevicePath path;
  compose_device_path(path, name);
  if ((mask & IN_CREATE) != 0) {
    open_device(path);
  } else {
    close_device(path, kRemovalFlags);
  }
}

void read_changes() {
  char buffer[kNotifyBufferSize];
  const ssize_t size = read(s_poll_set[0].fd, buffer, sizeof(buffer));
  if (size < 0 && errno != EINTR) SAY("could not get event, %s\n", strerror(errno));
  if (size > 0) for_each_named_record(buffer, static_cast<size_t>(size), follow_change);
}

// Four write() calls: part of the file's contract.
void record_event(const input_event& event, bool second_touch) {
  timeval now;
  gettimeofday(&now, nullptr);
  char stamp[kEventStampSize];
  format_event_stamp(stamp, local_civil_time(now.tv_sec), static_cast<long>(now.tv_usec));
  char fields[kEventLineSize];
  format_event_fields(fields, event.type, event.code, event.value);
  s_event_file->flushToFile(stamp);
  s_event_file->flushToFile(event_device_marker(second_touch));
  s_event_file->flushToFile(fields);
  s_event_file->flushToFile("\n");
}

// Reads and records one event of the device `index`. False when it gave less than an event.
bool take_event(int index) {
  pollfd& device = s_poll_set[index];
  const bool hung_up = (device.revents & (POLLERR | POLLHUP)) != 0;
  input_event event;
  const ssize_t size = read(device.fd, &event, sizeof(event));
  if (size == static_cast<ssize_t>(sizeof(event))) {
    record_event(event, index == s_second_touch);
    return true;
  }
  // Unplugged while events were waiting: an end like any other unplug.
  if ((size <= 0 && hung_up) || (size < 0 && errno == ENODEV)) {
    device.fd = -1;
    return true;
  }
  SAY("could not get event\n");
  return false;
}

// False when a device gave less than an event.
bool take_events() {
  for (int i = 1; i < s_device_count; i++) {
    const short ready = s_poll_set[i].revents;
    if ((ready & POLLIN) != 0) {
      if (!take_event(i)) return false;
    } else if (ready != 0) {
      // Hung up: poll() would return at once from now on. The entry stays until its node is
      // removed.
      s_poll_set[i].fd = -1;
    }
  }
  return true;
}

// The file, the watch and the devices that are there. False after a fatal error.
bool begin_recording(char* dir) {
  append_or_abort(dir, kOutputDirSize, kEventFile);
  s_event_file = new (std::nothrow) EventSaver(dir);
  s_device_count = 1;
  s_device_paths = nullptr;
  s_poll_set = static_cast<pollfd*>(calloc(1, sizeof(pollfd)));
  if (s_event_file == nullptr || s_poll_set == nullptr) {
    SAY("out of memory\n");
    return false;
  }
  s_second_touch = -1;
  if (s_event_file->openLogFile() < 0) LOG_UNTAGGED("eventSaver openLogFile error");
  s_poll_set[0] = {inotify_init1(IN_CLOEXEC), POLLIN, 0};
  if (inotify_add_watch(s_poll_set[0].fd, kDeviceDir, IN_CREATE | IN_DELETE) < 0) {
    SAY("could not add watch for %s, %s\n", kDeviceDir, strerror(errno));
    return false;
  }
  if (!scan_devices()) return false;
  LOG_UNTAGGED("gettouchlog, nfds:%d", s_device_count);
  return true;
}

}  // namespace

int start_tp_log() {
  s_recording = 1;
  return 1;
}

int stop_tp_log() {
  s_recording = 0;
  return 0;
}

int open_device(const char* path) {
  // A node that appears while the directory is scanned is reported by the watch as well.
  if (find_device(path) != -1) return 0;
  const int fd = open(path, O_RDWR | O_CLOEXEC);
  if (fd < 0) {
    SAY("could not open %s, %s\n", path, strerror(errno));
    return -1;
  }
  Identity name;
  Identity location;
  Identity unique_id;
  ask_identity(fd, EVIOCGNAME(kIdentitySize), name);
  ask_identity(fd, EVIOCGPHYS(kIdentitySize), location);
  ask_identity(fd, EVIOCGUNIQ(kIdentitySize), unique_id);
  int clock = CLOCK_MONOTONIC;
  if (ioctl(fd, EVIOCSCLOCKID, &clock) != 0)
    SAY("Can't enable monotonic clock reporting: %s\n", strerror(errno));
  if (!is_accepted(name)) {
    LOG_UNTAGGED("gettouchlog, not valid, name:%s", name);
    return -1;
  }
  const bool second_touch = strstr(name, kSecondTouchName) != nullptr;
  const int index = s_device_count;
  if (second_touch) LOG_UNTAGGED("gettouchlog, second_touch_id:%d", index);
  if (!add_device(fd, path)) {
    SAY("out of memory\n");
    close(fd);
    return -1;
  }
  if (second_touch) s_second_touch = index;
  return 0;
}

int close_device(const char* path, int flags) {
  const int index = find_device(path);
  if (index == -1) {
    if ((flags & kSayWhenMissing) != 0) SAY("remote device: %s not found\n", path);
    return -1;
  }
  if ((flags & kRecordRemoval) != 0 && s_event_file != nullptr) {
    char text[sizeof(DevicePath) + 32];
    format_cut(text, "remove device %d: %s\n", index, path);
    s_event_file->flushToFile(text);
  }
  remove_device(index);
  return 0;
}

int gettouchlog(char* dir) {
  if (!begin_recording(dir)) return 1;
  while (s_recording == 1) {
    // A signal ends the wait without an event: look at the flag again.
    if (poll(s_poll_set, static_cast<nfds_t>(s_device_count), -1) < 0) continue;
    if ((s_poll_set[0].revents & POLLIN) != 0) read_changes();
    if (!take_events()) return 1;
  }
  s_event_file->closeLogFile();
  return 0;
}
