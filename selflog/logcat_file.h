// Repairs a logcat's text file after the logcat has ended.
//
// logcat buffers 4 KiB of text, which die with it: a signal cuts the file in the middle of a line,
// and short logs stay empty. It also preallocates its whole rotation size (100 MiB for a capture)
// and leaves that behind. Run again with "-d" it goes on at the time of the file's last line.
#pragma once

#include <stdint.h>
#include <sys/types.h>

#include <string_view>

// For all the logcats together that complete their files at a stop. Eight times the longest that
// was measured: in a bench phone on two busy cores, six buffers of 16 MiB, of which no line was in
// its file yet, took 1.9 s, side by side and one after the other; of 256 KiB 0.5 s, most of it for
// preallocating. A phone's flash is slower than the tmpfs there.
constexpr int kCompletionMs = 15 * 1000;

// Length of the whole lines of a text of `length` bytes that ends with `tail`: without a last line
// that has no newline. For a `tail` without any newline 0 when it is the whole text; otherwise
// `length`, because no log line is that long.
int64_t whole_lines(int64_t length, std::string_view tail);

enum class TornLine { kKeep, kCut };

// Gives back what the regular file `name` in the directory `dir` (AT_FDCWD: a path) has allocated
// behind its end, after cutting its torn last line when asked to. No process may be writing the
// file. False with errno: ENOENT, ELOOP for a symbolic link, EINVAL for what is no regular file.
//
// Truncation to the file's own size frees the blocks on ext4 and tmpfs, a hole punched behind the
// end does not on ext4 (both measured; of f2fs, which many phones have for /data, nothing is).
bool trim_logcat_file(int dir, const char* name, TornLine torn);

// Waits up to `milliseconds` for the child `pid`, a logcat that works on `what`. One that outlives
// that is killed with its group, with one error line. Returns as wait_within(): 0 when it was
// killed.
pid_t await_logcat(pid_t pid, int milliseconds, const char* what, int* status);
