// The daemon in a phone, seen from the host: its log lines, processes, descriptors and store, and
// requests to start and stop.
#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

#include "phone/host/client.h"
#include "phone/host/phone.h"

// Logger types, by their bits.
constexpr int kMobile = 0x1, kModem = 0x2, kWifi = 0x40;

// One line of the daemon in the phone's main log buffer.
struct LogLine {
  int priority = 0;  // 3 debug, 4 info, 5 warning, 6 error
  pid_t pid = 0;     // in the phone's pid namespace
  pid_t tid = 0;
  int64_t time_ms = 0;  // since the epoch
  std::string source, function;
  std::string text;
};
std::ostream& operator<<(std::ostream& out, const LogLine& line);

// All lines in order; and those whose text begins with `start`.
std::vector<LogLine> daemon_log(const Phone& phone);
std::vector<LogLine> lines_with(const std::vector<LogLine>& lines, const std::string& start);
int count_lines(const Phone& phone, const std::string& start);
// Waits until exactly `times` lines begin with `start`.
bool eventually_logged(const Phone& phone, const std::string& start, int times = 1,
                       int limit_ms = kOwedMs);
// Index of the first text that begins with `start`; the size when there is none.
size_t index_of(const std::vector<std::string>& texts, const std::string& start);
// "priority text" of the main process's main thread, from line number `from` on.
std::vector<std::string> main_thread_log(const Phone& phone, size_t from);
// "key=value" of the main process's property sets, from set number `from` on; a run's name is
// replaced by RUN.
std::vector<std::string> sets_of_daemon(const Phone& phone, size_t from);
// The rest of the only line that begins with `start`; another count is a failure.
std::string rest_of_line(const Phone& phone, const std::string& start);

// The lines that report a kill after a bounded wait; without reports, see cut_reports().
std::vector<std::string> overdue_kills(const Phone& phone);
// The same for the workers that write reports: system.prop and others.prop in 2 s, the dumps of all
// buffers in 7 s. They run a dozen programs, which may take longer on a busy machine; what was not
// written by then is missing. `function`: copy_system_propertie or get_general_log.
std::vector<LogLine> cut_reports(const Phone& phone, const std::string& function);

// `files`, without system.prop, others.prop and those of the stop if their worker was killed.
std::vector<std::string> promised(const Phone& phone, std::vector<std::string> files);

// The commands that `pid` ran in a shell, in order.
std::vector<std::string> commands_of(const Phone& phone, pid_t pid);

// Options for a phone without a vendor side, whose answers are preset: a stop does not wait. Its
// logcats do not preallocate: on a tmpfs that takes a third of a second of each start and stop, and
// the room that a test controls.
std::vector<std::string> quick_vendor(std::vector<std::string> more = {});

// Start and stop requests. The result; -99 after a failure.
int32_t start_logging(const Phone& phone, int32_t mask);
int32_t stop_logging(const Phone& phone);

// True when the version request is answered within the limit.
bool serves(const Phone& phone, int limit_ms = kOwedMs);

// All descendants of the daemon's main process, zombies too.
std::vector<PhoneProcess> children_of_daemon(const Phone& phone);
// Waits until the kernel-log worker of the start-up is reaped: an idle daemon has no child and logs
// nothing.
bool settled(const Phone& phone);
bool eventually_childless(const Phone& phone, int limit_ms = kOwedMs);
// All running debug logcats, of any run; and one for each buffer, "main" first.
std::vector<PhoneProcess> debug_logcats(const Phone& phone);
std::vector<PhoneProcess> logcats(const Phone& phone);
// A start is answered before its workers have executed their programs: these two wait for that.
bool all_logcats_run(const Phone& phone);
PhoneProcess logcat_of(const Phone& phone, const std::string& buffer);  // pid 0: none
std::vector<PhoneProcess> collectors(const Phone& phone);               // of the self log
PhoneProcess size_monitor(const Phone& phone);                          // pid 0: none
PhoneProcess running_monitor(const Phone& phone);                       // waits for its loop
bool is_alive(const Phone& phone, pid_t pid);                           // false for a zombie

// The targets of a process's descriptors; "" for an unreadable one.
std::vector<std::string> descriptors(const Phone& phone, pid_t pid);

// The name of the current run, as the daemon publishes it; and its two directories.
std::string run_name(const Phone& phone);
// The daemon's reply to the request for the current run.
std::string current_run(const Phone& phone);
inline std::string working_path(const std::string& run) {
  return "/data/misc/zelkalog/" + run;
}
inline std::string store_path(const std::string& run) {
  return "/sdcard/zelkalog/" + run;
}

// All paths below `directory`, relative, sorted; directories end in '/'.
std::vector<std::string> tree(const Phone& phone, const std::string& directory);

// Bytes available to unprivileged users on the file system of `path`.
int64_t available(const Phone& phone, const std::string& path);
// Fills the file system of `path` with that file, except for `left` bytes (approximately, when
// others write).
void fill(const Phone& phone, const std::string& path, int64_t left);

// What logcats have written, by "RUN/mobile/FILE": whole lines only, as a write may be in progress.
using Captured = std::map<std::string, std::string>;

// Adds the current content of the current run; replaces earlier entries.
void remember_captured(const Phone& phone, Captured* captured);

// The files that do not begin with the remembered content, neither in the working area nor in the
// store.
std::vector<std::string> lost(const Phone& phone, const Captured& captured);
