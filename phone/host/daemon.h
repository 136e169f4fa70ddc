// The daemon in a phone, seen from the host: its own log lines, its processes and their
// descriptors, its store, and how it is told to start and stop.
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
  pid_t pid = 0;     // as the phone counts
  pid_t tid = 0;
  int64_t time_ms = 0;  // since the epoch
  std::string source, function;
  std::string text;
};
std::ostream& operator<<(std::ostream& out, const LogLine& line);

// All of them, or those whose text begins with `start`; in order.
std::vector<LogLine> daemon_log(const Phone& phone);
std::vector<LogLine> lines_with(const std::vector<LogLine>& lines, const std::string& start);
int count_lines(const Phone& phone, const std::string& start);
// Waits until just so many lines begin so.
bool eventually_logged(const Phone& phone, const std::string& start, int times = 1,
                       int limit_ms = kOwedMs);
// Where the first text that begins with `start` stands; the size when there is none.
size_t place_of(const std::vector<std::string>& texts, const std::string& start);
// The main thread of the main process alone: "priority text" of every line from number `from` on.
std::vector<std::string> main_thread_log(const Phone& phone, size_t from);
// "key=value" of what the main process has set, from the set with number `from` on; a run's name is
// written RUN.
std::vector<std::string> sets_of_daemon(const Phone& phone, size_t from);
// The one line that begins so, without that beginning; trouble when there is not just one.
std::string rest_of_line(const Phone& phone, const std::string& start);

// The lines that tell of something that had to be killed because it outlived its bound; without the
// reports, see cut_reports().
std::vector<std::string> overdue_kills(const Phone& phone);
// The same of the workers that write reports: system.prop and others.prop in 2 s, the dumps of all
// buffers in 7 s. They run a dozen programs, for which a busy machine may take longer; what they
// had not written by then is missing. The lines of copy_system_propertie or get_general_log.
std::vector<LogLine> cut_reports(const Phone& phone, const std::string& function);

// `files` without system.prop, others.prop and theirs of the stop when their worker was cut.
std::vector<std::string> promised(const Phone& phone, std::vector<std::string> files);

// The commands that the process `pid` gave to a shell, in order.
std::vector<std::string> commands_of(const Phone& phone, pid_t pid);

// Options for a phone without a vendor side, whose answers are there already: a stop does not wait.
// Its logcats do not preallocate, which takes a third of a second of each start and stop on a
// tmpfs, and the room that a test wants to deal out.
std::vector<std::string> quick_vendor(std::vector<std::string> more = {});

// Start and stop as the client asks for them. The result, or trouble and -99.
int32_t start_logging(const Phone& phone, int32_t mask);
int32_t stop_logging(const Phone& phone);

// The version request is answered within the limit.
bool serves(const Phone& phone, int limit_ms = kOwedMs);

// Every process below the daemon's main process, zombies too.
std::vector<PhoneProcess> children_of_daemon(const Phone& phone);
// Waits until the kernel-log worker of the start-up is reaped: then an idle daemon logs nothing
// more, and has no child.
bool settled(const Phone& phone);
bool eventually_childless(const Phone& phone, int limit_ms = kOwedMs);
// Every debug logcat that runs, of whatever run; and one for each buffer, "main" first.
std::vector<PhoneProcess> debug_logcats(const Phone& phone);
std::vector<PhoneProcess> logcats(const Phone& phone);
// A start is answered before its workers have become their programs: these two wait for that.
bool all_logcats_run(const Phone& phone);
PhoneProcess logcat_of(const Phone& phone, const std::string& buffer);  // pid 0: none comes
std::vector<PhoneProcess> collectors(const Phone& phone);               // of the daemon's own lines
PhoneProcess size_monitor(const Phone& phone);                          // pid 0: none
PhoneProcess running_monitor(const Phone& phone);  // waits until it is in its loop
bool is_alive(const Phone& phone, pid_t pid);      // zombies are not

// What every open descriptor of a process of the phone points at; "" for an unreadable one.
std::vector<std::string> descriptors(const Phone& phone, pid_t pid);

// The run directory's name that the daemon publishes, and its two places.
std::string run_name(const Phone& phone);
// What the daemon answers when it is asked for the current run.
std::string current_run(const Phone& phone);
inline std::string working_path(const std::string& run) {
  return "/data/misc/zelkalog/" + run;
}
inline std::string store_path(const std::string& run) {
  return "/sdcard/zelkalog/" + run;
}

// All paths below `directory`, relative to it, sorted; directories end in '/'.
std::vector<std::string> tree(const Phone& phone, const std::string& directory);

// Bytes that ordinary users may still write on the file system of `path`.
int64_t available(const Phone& phone, const std::string& path);
// Lets the file `path` take everything of its file system but `left` bytes, or a little more when
// others write meanwhile.
void fill(const Phone& phone, const std::string& path, int64_t left);

// What logcats have written, by "RUN/mobile/FILE": only whole lines, as a write may be under way.
using Captured = std::map<std::string, std::string>;

// Adds what the current run has now. Later looks replace earlier ones.
void remember_captured(const Phone& phone, Captured* captured);

// The files whose beginning is not any more what was remembered, neither in the working area nor in
// the store.
std::vector<std::string> lost(const Phone& phone, const Captured& captured);
