#include "debuglog/logcat.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <string>

#include "base/local_time.h"
#include "base/process.h"
#include "base/scoped.h"
#include "base/text.h"
#include "debuglog/run.h"
#include "debuglog/workers.h"
#include "model/log_buffers.h"
#include "model/masks.h"
#include "model/properties.h"
#include "selflog/log.h"
#include "selflog/logcat_file.h"
#include "selflog/props.h"
#include "storage/shell.h"
#include "storage/utils.h"

LogcatRow s_debug_vesk_group[kLogBufferCount] = {
    {kLogBuffers[0]}, {kLogBuffers[1]}, {kLogBuffers[2]},
    {kLogBuffers[3]}, {kLogBuffers[4]}, {kLogBuffers[5]},
};
ReplacementRow s_newlog_group[kLogBufferCount] = {
    {kLogBuffers[0]}, {kLogBuffers[1]}, {kLogBuffers[2]},
    {kLogBuffers[3]}, {kLogBuffers[4]}, {kLogBuffers[5]},
};
int32_t s_logcat_file_count = kDefaultLogcatFileCount;

namespace {

constexpr char kLogSource[] = "commands";
constexpr size_t kPathSize = 256;
constexpr char kDebugFormat[] = "threadtime,usec";
constexpr char kDebugRotationKiB[] = "102400";
constexpr int64_t kDebugRotationBytes = 100 * 1024 * 1024;

// The rotated files that the latest debug logcat keeps. The stop resets s_extended_logcat_count
// before it completes the files.
int32_t s_kept_files = kDefaultLogcatFileCount;

const char* general_rotation_kib(const char* buffer) {
  if (starts_with(buffer, "main")) return "10240";
  return starts_with(buffer, "kernel") ? "2048" : "1024";
}

// The row of `table` that is for `buffer`; null when there is none.
template <typename Row>
Row* find_buffer(Row (&table)[kLogBufferCount], const char* buffer) {
  Row* const row = std::find_if(table, table + kLogBufferCount, [buffer](const Row& candidate) {
    return strcmp(candidate.buffer, buffer) == 0;
  });
  return row == table + kLogBufferCount ? nullptr : row;
}

// The logcat worker's body.
[[noreturn]] void become_logcat(const char* buffer, const char* file, int is_debug) {
  char name[96] = {};
  build_process_name(buffer, name, is_debug, true);
  creat_file(file);
  if (is_trap(file)) end_process(0);  // creat_file() has logged it
  const char* format = is_debug != 0 ? kDebugFormat : "threadtime";
  const char* size = is_debug != 0 ? kDebugRotationKiB : general_rotation_kib(buffer);
  char keep[16];
  format_cut(keep, "%d", is_debug != 0 ? s_kept_files : 1);
  const int ret = execlp(kLogcat, name, "-v", format, "-b", buffer, "-f", file, "-r", size, "-n",
                         keep, static_cast<char*>(nullptr));
  LOGE_AS("run_logcat", "logcat %s ret: %d, err: %s\n", buffer, ret, strerror(errno));
  end_process(0);
}

// Empties the log buffer `buffer`, so that the replacement of the logcat `dead` does not write the
// same lines again.
void clear_buffer(const char* buffer, pid_t dead) {
  const pid_t pid = fork_process(Group::kNew);
  if (pid == -1) {
    LOGE_AS("update_logcat_log", "fork err:%s.\n", strerror(errno));
    return;
  }
  if (pid == 0) {
    const int ret = execlp(kLogcat, "vesk_clear", "-b", buffer, "-c", static_cast<char*>(nullptr));
    LOGE_AS("update_logcat_log", "logcat -c %s ret: %d, err: %s\n", buffer, ret, strerror(errno));
    end_process(0);
  }
  LOGE_AS("update_logcat_log", "fork child process, pid:%d, update_logcat_log: vesk -b %s -c \n",
          dead, buffer);
  int status = 0;
  const pid_t ret = await_logcat(pid, kToolBoundMs, "clear", &status);
  LOGD_AS("update_logcat_log", "status is:%d.ret is %d. \n", status, ret);
}

// ---- Completing the files of ended logcats. ----

// A debug logcat's file, reached through the open directory and so never through a link.
struct Capture {
  const char* buffer;
  char path[kPathSize];
  pid_t pid;  // of the logcat that completes it
};

// Opens the directory of the current run's logcats, unless it is a link.
int open_capture_dir(char (&path)[kPathSize]) {
  format_cut(path, "%s/mobile/", s_log_store_path);
  std::string without_slash(path, strlen(path) - 1);
  if (is_trap(without_slash.c_str())) return -1;
  return open(without_slash.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
}

// Finds the file of `buffer`'s latest logcat (a replacement, else the first one) in `directory` and
// cuts its torn last line. False when there is none, or, logged, when it cannot be completed.
bool prepare_capture(int dir, const char* directory, const char* buffer, Capture* out) {
  out->buffer = buffer;
  out->pid = 0;
  char tag[64];
  format_cut(tag, "%s_%d", buffer, find_buffer(s_newlog_group, buffer)->count);
  for (const char* candidate : {static_cast<const char*>(tag), buffer}) {
    copy_or_abort(out->path, directory);
    build_logcat_file_name(candidate, out->path);
    if (trim_logcat_file(dir, get_file_name(out->path), TornLine::kCut)) return true;
    if (errno == ENOENT) continue;
    LOGE_AS("complete_captures", "cannot complete %s: %s", out->path, strerror(errno));
    return false;
  }
  return false;
}

// Starts the logcat that appends what the buffer still has since the time of the file's last line;
// lines of that time are repeated.
void start_completion(Capture* file) {
  file->pid = fork_process(Group::kNew);
  if (file->pid != 0) return;
  char keep[16];
  format_cut(keep, "%d", s_kept_files);
  const int ret =
      execlp(kLogcat, "vesk_complete", "-d", "-v", kDebugFormat, "-b", file->buffer, "-f",
             file->path, "-r", kDebugRotationKiB, "-n", keep, static_cast<char*>(nullptr));
  LOGE_AS("complete_captures", "logcat %s ret: %d, err: %s\n", file->buffer, ret, strerror(errno));
  end_process(0);
}

// A completion preallocates too, and a full disk or its time limit may tear its last line.
void end_completion(int dir, const Capture& file, int64_t deadline) {
  if (file.pid > 0) {
    const int64_t left = std::max<int64_t>(0, deadline - monotonic_ms());
    await_logcat(file.pid, static_cast<int>(left), file.path, nullptr);
  }
  trim_logcat_file(dir, get_file_name(file.path), TornLine::kCut);
}

// Completes the files of these buffers: in parallel where there is room for what the logcats
// preallocate, else one by one. What has not begun within kCompletionMs is left out.
void complete_files(const char* const* buffers, int count) {
  const int64_t deadline = monotonic_ms() + kCompletionMs;
  char directory[kPathSize];
  const ScopedFd dir(open_capture_dir(directory));
  if (!dir.valid()) return;
  Capture files[kLogBufferCount];
  int found = 0;
  for (int i = 0; i < count; i++) {
    found += prepare_capture(dir.get(), directory, buffers[i], &files[found]) ? 1 : 0;
  }
  const bool together = get_filesystem_size(kData) >= found * kDebugRotationBytes;
  const int at_once = together ? found : 1;
  for (int first = 0; first < found; first += at_once) {
    if (monotonic_ms() >= deadline) {
      LOGE_AS("complete_captures", "no time left to complete %s and %d more", files[first].path,
              found - first - 1);
      return;
    }
    for (int i = first; i < first + at_once; i++) start_completion(&files[i]);
    for (int i = first; i < first + at_once; i++) end_completion(dir.get(), files[i], deadline);
  }
}

// Starts the replacement logcat of `buffer` that writes <directory>/<build id>-<tag>.txt.
void catcher_new_logcat_log(const char* buffer, const char* directory, const char* tag) {
  LOGD("function invoked");
  s_logcat_file_count = get_int_prop(kLogcatFileCountProp, kDefaultLogcatFileCount);
  char path[kPathSize] = {};
  copy_or_abort(path, directory);
  build_logcat_file_name(tag, path);
  const pid_t pid = run_logcat(buffer, path, 1);
  if (pid < 1) return;
  LOGD("pid:%d, type:%s", pid, buffer);
  ReplacementRow* row = find_buffer(s_newlog_group, buffer);
  if (row == nullptr) {
    signal_process(pid, SIGTERM);
  } else {
    row->pid = pid;
  }
}

}  // namespace

int build_logcat_file_name(const char* tag, char* path) {
  const std::string display_id = get_name_prop(kVendorDisplayIdProp, "zelka");
  const size_t length = strlen(path);
  if (length == 0 || path[length - 1] != '/') append_or_abort(path, kPathSize, "/");
  append_or_abort(path, kPathSize, display_id.c_str());
  append_or_abort(path, kPathSize, "-");
  const size_t before_suffix = append_or_abort(path, kPathSize, tag);
  append_or_abort(path, kPathSize, ".txt");
  return static_cast<int>(before_suffix);
}

pid_t run_logcat(const char* buffer, const char* file, int is_debug) {
  LOGD("buffer=%s, out_file=%s, is_debug=%d", buffer, file, is_debug);
  if (is_debug != 0) s_kept_files = files_to_keep(s_logcat_file_count, s_extended_logcat_count);
  const pid_t pid = fork_process(Group::kNew);
  if (pid == -1) {
    LOGE("fork err:%s.\n", strerror(errno));
    return 0;
  }
  if (pid == 0) become_logcat(buffer, file, is_debug);
  LOGE("fork child process, pid:%d, vesk -v threadtime -b %s -f %s -r ** -n ** is_debug:%d\n", pid,
       buffer, file, is_debug);
  return pid;
}

int catcher_logcat_log(const char* buffer, const char* directory, int is_debug) {
  LOGD("function invoked");
  char path[kPathSize] = {};
  copy_or_abort(path, directory);
  build_logcat_file_name(buffer, path);
  const pid_t pid = run_logcat(buffer, path, is_debug);
  if (pid < 1) return 0;
  LOGD("pid:%d, type:%s, is_debug:%d", pid, buffer, is_debug);
  if (is_debug != 1) {
    add_to_group(s_general_group, pid);
    return 0;
  }
  LogcatRow* row = find_buffer(s_debug_vesk_group, buffer);
  if (row == nullptr) {
    signal_process(pid, SIGTERM);
  } else {
    row->pid = pid;
  }
  return 0;
}

void update_logcat_log(pid_t pid) {
  const bool enabled = is_logger_enabled();
  LogcatRow* const ended = std::find_if(s_debug_vesk_group, s_debug_vesk_group + kLogBufferCount,
                                        [pid](const LogcatRow& row) { return row.pid == pid; });
  if (ended == s_debug_vesk_group + kLogBufferCount) return;
  LOGD("update_logcat_log pid = %d", pid);
  if (!enabled) return;
  char subdir[kPathSize];
  format_cut(subdir, "%s/mobile/", s_log_store_path);
  complete_files(&ended->buffer, 1);
  clear_buffer(ended->buffer, pid);
  clear_buffer(ended->buffer, pid);
  char buffer[32] = {};
  copy_or_abort(buffer, ended->buffer);
  ReplacementRow* row = find_buffer(s_newlog_group, buffer);
  row->count++;
  char file_name[64];
  format_cut(file_name, "%s_%d", buffer, row->count);
  LOGD("current_buffer = %s  file_name = %s  subdir = %s\n", buffer, file_name, subdir);
  catcher_new_logcat_log(buffer, subdir, file_name);
}

void complete_captures() {
  static char completed[sizeof(s_log_dir_name)] = "";  // the run whose files are complete
  if (strcmp(completed, s_log_dir_name) == 0) return;
  copy_or_abort(completed, s_log_dir_name);
  complete_files(kLogBuffers, kLogBufferCount);
}

void get_logcat_control_message(const char* directory) {
  const size_t length = strlen(directory);
  if (length == 0) return;
  if (is_dir_exist(directory) != 0) creat_dir(directory);
  const bool ends_sep = directory[length - 1] == '/';
  const CivilTime now = current_local_time();
  char file[512];
  format_cut(file, "%s%slogcat_control_message-%02d-%02d_%02d-%02d-%02d.txt", directory,
             ends_sep ? "" : "/", now.month, now.day, now.hour, now.minute, now.second);
  LOGD("logcat control message > %s ,ends_sep %d", file, ends_sep);
  run_tool(ShellText(kLogcat).raw(" -p -g >>").target(file), kOutputBytes);
  run_tool(ShellText(kLogcat).raw(" -S >>").target(file), kOutputBytes);
}

void get_logcat_control_message_for_debug(const char* store_path) {
  const size_t length = strlen(store_path);
  if (length == 0 || !has_logger_type(kTypeMobile)) return;
  char directory[kPathSize];
  format_cut(directory, "%s%smobile/", store_path, store_path[length - 1] == '/' ? "" : "/");
  get_logcat_control_message(directory);
}
