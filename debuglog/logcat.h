// Capture of the Android log buffers by long-running logcat processes that write rotating files.
#pragma once

#include <stdint.h>
#include <sys/types.h>

#include "model/log_buffers.h"
#include "model/paths.h"

// The debug logcats, a row for each of kLogBuffers.
struct LogcatRow {
  const char* buffer;
  int32_t pid = 0;  // 0: none
};
extern LogcatRow s_debug_vesk_group[kLogBufferCount];

// The logcats that replaced one that had ended by itself.
struct ReplacementRow {
  const char* buffer;
  int32_t count = 0;  // replacements since the daemon started; part of their file names
  int32_t pid = 0;    // 0: none
};
extern ReplacementRow s_newlog_group[kLogBufferCount];

// Rotated files that a debug logcat keeps ("-n"), unless s_extended_logcat_count asks for 39.
constexpr int kDefaultLogcatFileCount = 9;
constexpr char kLogcatFileCountProp[] = "persist.sys.zelka.harrowmossd.log_file_count";
extern int32_t s_logcat_file_count;

// The number after "-n": logcat refuses 0, and would capture nothing.
constexpr int32_t kExtendedFileCount = 39;
constexpr int32_t files_to_keep(int32_t count, bool extended) {
  return extended ? kExtendedFileCount : count < 1 ? kDefaultLogcatFileCount : count;
}

// Completes `path` (256 bytes, a directory on entry; longer aborts) to <dir>/<build id>-<tag>.txt,
// blanks and slashes of the build's display id as dashes. Returns the length before ".txt".
int build_logcat_file_name(const char* tag, char* path);

// Forks a logcat of `buffer` into `file`: a debug logcat (100 MiB a file), or with `is_debug` 0 one
// of the general collection, which is part of the interface though no request starts it. Returns
// its pid, 0 when the fork failed.
pid_t run_logcat(const char* buffer, const char* file, int is_debug);

// Starts a logcat of `buffer` in `directory` and enters it: with `is_debug` 1 in
// s_debug_vesk_group, else in s_general_group. One without a place there is sent SIGTERM. Returns
// 0.
int catcher_logcat_log(const char* buffer, const char* directory, int is_debug);

// Replaces the debug logcat `pid`, which has ended by itself, while debug logging is on: completes
// its file, clears its buffer twice and captures into a new file. Does nothing for other pids. Main
// process, at a safe point; waits up to kCompletionMs for the file and kToolBoundMs for each clear.
void update_logcat_log(pid_t pid);

// After the run's logcats have ended: appends what they had not written yet to their files (for a
// replaced logcat to its replacement's) and frees what they have preallocated. Once for each run;
// failures are logged. Up to kCompletionMs for all together. Main process.
void complete_captures();

// Writes the log daemon's prune list, buffer sizes and statistics into a file in `directory`, which
// is made when missing; nothing for "".
void get_logcat_control_message(const char* directory);

// The same for the mobile directory of the run `store_path`, when the mobile type is on.
void get_logcat_control_message_for_debug(const char* store_path);
