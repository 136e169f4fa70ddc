// logcat and vesk of a bench phone: show, follow, clear and measure the phone's log buffers, with
// the options, output format and rotation of the real tool.
//
// Tests control it with properties: bench.logcat.BUFFER.ignore_term (1: SIGTERM does nothing),
// bench.logcat.BUFFER.exit_after_ms (exits by itself, with bench.logcat.BUFFER.exit_status);
// without "BUFFER." they apply to every logcat, else to those that read the buffer.
// bench.logcat.exit_pid ends only the logcat with that pid. The real tool's file handling is
// switched off in the same way: preallocate, buffer, private_mode, go_on (0).
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>

#include <algorithm>
#include <deque>

#include "phone/logs/buffers.h"
#include "phone/logs/logcat_options.h"
#include "phone/logs/output.h"
#include "phone/logs/source.h"
#include "phone/tools/journal.h"
#include "platform/linux/bench_phone.h"
#include "platform/linux/property_area.h"

namespace {

volatile sig_atomic_t g_terminated = 0;
void note_term(int) {
  g_terminated = 1;
}

int64_t clock_ns(clockid_t clock) {
  struct timespec now;
  clock_gettime(clock, &now);
  return now.tv_sec * INT64_C(1000000000) + now.tv_nsec;
}

// The value of the first of the buffers' properties that is set, else of the one for all; `unset`
// when none is.
long control(const LogcatOptions& options, const char* name, long unset) {
  PropertyArea area;
  if (!area.open()) return unset;
  std::vector<std::string> keys;
  for (const std::string& buffer : options.buffers)
    keys.push_back("bench.logcat." + buffer + "." + name);
  keys.push_back(std::string("bench.logcat.") + name);
  char value[92];
  for (const std::string& key : keys) {
    if (area.get(key.c_str(), value) > 0) return atol(value);
  }
  return unset;
}

LogFileBehavior file_behavior(const LogcatOptions& options) {
  return {control(options, "preallocate", 1) != 0, control(options, "buffer", 1) != 0,
          control(options, "private_mode", 1) != 0};
}

// Merges the sources of all buffers, the oldest entry first.
class Merged {
 public:
  explicit Merged(const std::vector<std::string>& buffers) {
    for (const std::string& buffer : buffers) {
      auto source = open_log_buffer(buffer);
      if (source != nullptr) heads_.push_back({std::move(source), {}, false});
    }
  }
  bool next(LogEntry* entry) {
    Head* oldest = nullptr;
    for (Head& head : heads_) {
      if (!head.full) head.full = head.source->next(&head.entry);
      if (head.full && (oldest == nullptr || head.entry.time_ns < oldest->entry.time_ns))
        oldest = &head;
    }
    if (oldest == nullptr) return false;
    *entry = std::move(oldest->entry);
    oldest->full = false;
    return true;
  }

 private:
  struct Head {
    std::unique_ptr<RecordSource> source;
    LogEntry entry;
    bool full;
  };
  std::vector<Head> heads_;
};

class Logcat {
 public:
  explicit Logcat(LogcatOptions options)
      : options_(std::move(options)),
        sources_(options_.buffers),
        behavior_(file_behavior(options_)),
        output_(options_.file, options_.rotate_kb, static_cast<int>(options_.generations),
                behavior_) {}

  int run();

 private:
  void resume_after_existing_lines();
  void prepare_signals();
  bool show(const LogEntry& entry);
  bool show_backlog();
  bool show_new();
  bool is_told_to_exit();
  bool follow();

  LogcatOptions options_;
  Merged sources_;
  LogFileBehavior behavior_;
  LogOutput output_;
  int64_t begin_ns_ = -1;  // older entries are already in the file
  std::vector<std::string> begun_;
  std::string last_buffer_;
  bool ignores_term_ = false;
  int64_t end_ns_ = INT64_MAX;  // CLOCK_MONOTONIC
  sigset_t waiting_mask_;
  PropertyArea properties_;
};

// Resumes at the time of the last line in the file of -f. Lines have microseconds, records
// nanoseconds: the last entry is written again.
void Logcat::resume_after_existing_lines() {
  if (options_.file.empty() || options_.tail != 0 || control(options_, "go_on", 1) == 0) return;
  Fd fd(open(options_.file.c_str(), O_RDONLY | O_CLOEXEC));
  struct stat st;
  if (!fd.ok() || fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode)) return;
  constexpr off_t kTail = 64 * 1024;  // far longer than any entry
  std::string end(std::min(st.st_size, kTail), '\0');
  if (pread(fd.get(), end.data(), end.size(), st.st_size - end.size()) < 0) return;
  for (const std::string& line : split(end, "\n"))
    begin_ns_ = std::max(begin_ns_, time_of_line(line, clock_ns(CLOCK_REALTIME)));
}

// With buffering SIGTERM ends it, and buffered text is lost. Without, SIGTERM is unblocked only
// while waiting, so all earlier entries are written. A mask or SIG_IGN of the caller stays, as with
// the real logcat.
void Logcat::prepare_signals() {
  ignores_term_ = control(options_, "ignore_term", 0) != 0;
  const long exit_after_ms = control(options_, "exit_after_ms", -1);
  if (exit_after_ms >= 0) end_ns_ = clock_ns(CLOCK_MONOTONIC) + exit_after_ms * 1000000;
  sigset_t blocked;
  sigemptyset(&blocked);
  if (!behavior_.buffers) sigaddset(&blocked, SIGTERM);
  sigprocmask(SIG_BLOCK, &blocked, &waiting_mask_);
  struct sigaction action;
  sigaction(SIGTERM, nullptr, &action);
  if (action.sa_handler == SIG_IGN || (behavior_.buffers && !ignores_term_)) return;
  action = {};
  action.sa_handler = ignores_term_ ? SIG_IGN : note_term;
  sigaction(SIGTERM, &action, nullptr);
}

bool Logcat::show(const LogEntry& entry) {
  if (entry.time_ns < begin_ns_) return true;
  if (!options_.filter.shows(entry.tag, entry.priority)) return true;
  std::string text;
  if (entry.buffer != last_buffer_) {
    const bool begun = std::find(begun_.begin(), begun_.end(), entry.buffer) != begun_.end();
    if (!begun || options_.dividers)
      text = std::string("--------- ") + (begun ? "switch to " : "beginning of ") + entry.buffer +
             "\n";
    if (!begun) begun_.push_back(entry.buffer);
    last_buffer_ = entry.buffer;
  }
  text += format_entry(entry, options_.format);
  if (!output_.write(text)) {
    perror("output error");
    return false;
  }
  if (output_.rotate_if_full()) return true;
  perror("couldn't open output file");
  return false;
}

bool Logcat::show_new() {
  LogEntry entry;
  while (sources_.next(&entry)) {
    if (!show(entry)) return false;
    if (clock_ns(CLOCK_MONOTONIC) >= end_ns_) return true;
  }
  return true;
}

bool Logcat::show_backlog() {
  if (options_.tail == 0) return show_new();
  std::deque<LogEntry> last;
  LogEntry entry;
  while (sources_.next(&entry)) {
    last.push_back(std::move(entry));
    if (last.size() > static_cast<size_t>(options_.tail)) last.pop_front();
  }
  for (const LogEntry& each : last) {
    if (!show(each)) return false;
  }
  return true;
}

bool Logcat::is_told_to_exit() {
  char value[92];
  return properties_.get("bench.logcat.exit_pid", value) > 0 && atol(value) == getpid();
}

bool Logcat::follow() {
  // Poll interval. inotify would be faster, but costs the writer more than its own write, and
  // closing its descriptor takes the kernel up to 20 ms, which delays the exit.
  constexpr int64_t kPollNs = 10000000;
  while (true) {
    if (!show_new()) return false;
    const int64_t left = end_ns_ - clock_ns(CLOCK_MONOTONIC);
    if (left <= 0 || g_terminated != 0 || is_told_to_exit()) return true;
    const struct timespec limit = {0, static_cast<long>(std::min(left, kPollNs))};
    if (ppoll(nullptr, 0, &limit, &waiting_mask_) < 0 && errno != EINTR) return false;
  }
}

int Logcat::run() {
  resume_after_existing_lines();
  if (!output_.open()) {
    fprintf(stderr, "couldn't open output file: %s\n", strerror(errno));
    return 1;
  }
  prepare_signals();
  if (!properties_.open()) return 1;
  if (!show_backlog()) return 1;
  if (options_.dump) return output_.flush() ? 0 : 1;
  if (!follow() || !output_.flush()) return 1;
  if (g_terminated != 0) {  // all is written: die of the signal, as the real one does
    signal(SIGTERM, SIG_DFL);
    raise(SIGTERM);
    sigprocmask(SIG_SETMASK, &waiting_mask_, nullptr);
  }
  return static_cast<int>(control(options_, "exit_status", 0));
}

int clear(const LogcatOptions& options) {
  for (const std::string& buffer : options.buffers) {
    if (open_log_buffer(buffer) != nullptr && !punch_log_buffer(buffer, -1)) {
      fprintf(stderr, "failed to clear the '%s' log: %s\n", buffer.c_str(), strerror(errno));
      return 1;
    }
  }
  return 0;
}

std::string size_text(off_t bytes) {
  if (bytes < 1024) return std::to_string(bytes) + " B";
  if (bytes < (1 << 20)) return std::to_string(bytes / 1024) + " KiB";
  return std::to_string(bytes >> 20) + " MiB";
}

void print_sizes(const LogcatOptions& options) {
  for (const std::string& buffer : options.buffers) {
    const std::string size = size_text(log_buffer_bytes(buffer));
    printf(
        "%s: ring buffer is %s (%s consumed, %s readable), max entry is 5120 B, max payload is "
        "4068 B\n",
        buffer.c_str(), size_text(kLogBufferLimit).c_str(), size.c_str(), size.c_str());
  }
}

void print_statistics(const LogcatOptions& options) {
  printf("%-10s %10s %10s\n", "size/num", "Total", "Entries");
  for (const std::string& buffer : options.buffers) {
    long entries = 0;
    LogEntry entry;
    const auto source = open_log_buffer(buffer);
    while (source != nullptr && source->next(&entry)) entries++;
    printf("%-10s %10lld %10ld\n", buffer.c_str(), static_cast<long long>(log_buffer_bytes(buffer)),
           entries);
  }
}

}  // namespace

int main(int argc, char** argv) {
  require_bench_phone();
  char self[64] = "";  // /system/bin/logcat or /system/bin/vesk
  (void)!readlink("/proc/self/exe", self, sizeof self - 1);
  journal_call(self, argc, argv);
  LogcatOptions options;
  std::string error;
  if (!parse_logcat_options({argv + 1, argv + argc}, &options, &error)) {
    fprintf(stderr, "logcat: %s\n", error.c_str());
    return 1;
  }
  if (options.clear) return clear(options);
  if (options.sizes) print_sizes(options);
  if (options.statistics) print_statistics(options);
  if (options.prune_list) puts("~! ~1000/!");  // Android 13's default
  if (options.sizes || options.statistics || options.prune_list) return 0;
  return Logcat(std::move(options)).run();
}
