// Reading a run of 1 GiB in six buffers: the merged list against cat, wc and sort, a range of time
// against grep. The tools are the host's; bench/run.py copies them in.
#include <fcntl.h>
#include <spawn.h>
#include <stdio.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "bench/harness.h"

extern char** environ;

namespace {

constexpr char kRun[] = "/data/1#11-20_00-00-00";
constexpr char kTools[] = "PATH=/data/local/tmp:$PATH LC_ALL=C; export LC_ALL; ";
constexpr int64_t kTotal = 1LL << 30;
constexpr int64_t kFile = 100 << 20;
constexpr int kLineUs = 2750;  // apart on average: six hours in all
constexpr struct {
  const char* name;
  int share;  // of 100 lines
} kBuffers[] = {{"main", 60},   {"system", 10}, {"radio", 15},
                {"events", 10}, {"crash", 1},   {"kernel", 4}};

struct UsedTime {
  int64_t cpu_ns;
  int64_t wall_ns;
  int64_t peak_kib;
};

// Runs a shell command to its end.
UsedTime run_line(const std::string& line) {
  const std::string text = kTools + line;
  char* const argv[] = {const_cast<char*>("sh"), const_cast<char*>("-c"),
                        const_cast<char*>(text.c_str()), nullptr};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  pid_t pid;
  const int64_t start = wall_ns();
  if (posix_spawn(&pid, "/system/bin/sh", &actions, nullptr, argv, environ) != 0) fail("no shell");
  posix_spawn_file_actions_destroy(&actions);
  rusage used = {};
  int status = -1;
  if (wait4(pid, &status, 0, &used) != pid || status != 0) fail("failed: " + line);
  const auto us = [](const timeval& time) { return time.tv_sec * INT64_C(1000000) + time.tv_usec; };
  return {(us(used.ru_utime) + us(used.ru_stime)) * 1000, wall_ns() - start, used.ru_maxrss};
}

Contender line_contender(const char* name, const std::string& line) {
  return {name, [line] { return run_line(line).cpu_ns; }};
}

// Writes a buffer's files, rotated at 100 MiB: `share` of 100 lines, all on one clock.
class BufferWriter {
 public:
  explicit BufferWriter(const char* name) : name_(name) {}
  ~BufferWriter() {
    if (file_ != nullptr) fclose(file_);
    for (int i = 0; i + 1 < parts_; i++) {
      rename(part(i).c_str(), (path() + "." + std::to_string(parts_ - 1 - i)).c_str());
    }
    if (parts_ > 0) rename(part(parts_ - 1).c_str(), path().c_str());
  }
  void add(const char* line, size_t size) {
    if (file_ == nullptr || bytes_ >= kFile) {
      if (file_ != nullptr) fclose(file_);
      file_ = fopen(part(parts_++).c_str(), "we");
      if (file_ == nullptr) fail("no room for the run");
      bytes_ = 0;
      if (parts_ == 1) fprintf(file_, "--------- beginning of %s\n", name_);
    }
    if (fwrite(line, 1, size, file_) != size) fail("no room for the run");
    bytes_ += static_cast<int64_t>(size);
  }

 private:
  std::string path() const { return std::string(kRun) + "/mobile/B-" + name_ + ".txt"; }
  std::string part(int number) const { return path() + ".part" + std::to_string(number); }

  const char* name_;
  FILE* file_ = nullptr;
  int parts_ = 0;
  int64_t bytes_ = 0;
};

void make_run() {
  mkdir(kRun, 0777);
  mkdir((std::string(kRun) + "/mobile").c_str(), 0777);
  std::vector<std::unique_ptr<BufferWriter>> writers;
  for (const auto& buffer : kBuffers)
    writers.push_back(std::make_unique<BufferWriter>(buffer.name));
  const std::string filling(200, 'x');
  uint32_t number = 1;
  int64_t us = 0;
  for (int64_t written = 0; written < kTotal;) {
    number = number * 1664525 + 1013904223;
    const int random = static_cast<int>(number >> 16);
    us += random % (2 * kLineUs);
    const int second = static_cast<int>(us / 1000000);
    char line[320];
    const int size =
        snprintf(line, sizeof line, "11-20 %02d:%02d:%02d.%06d  1234  5678 I Tag%-5d: %s\n",
                 second / 3600, second / 60 % 60, second % 60, static_cast<int>(us % 1000000),
                 random % 50, filling.c_str() + 60 + random % 100);
    int share = random / 128 % 100;
    size_t row = 0;
    while (share >= kBuffers[row].share) share -= kBuffers[row++].share;
    writers[row]->add(line, static_cast<size_t>(size));
    written += size;
  }
}

}  // namespace

void bench_log() {
  constexpr int kRounds = 2;
  pin();
  make_run();
  const std::string files = "'" + std::string(kRun) + "'/mobile/*";
  const std::string list = "harrowmossctl log '" + std::string(kRun) + "'";
  const BlockTimes times =
      alternate(kRounds, {line_contender("log", list + " | wc -l"),
                          line_contender("cat | wc", "cat " + files + " | wc"),
                          line_contender("cat | wc -l", "cat " + files + " | wc -l"),
                          line_contender("sort -m", "sort -m -s -k 1,2 " + files + " | wc -l")});
  report_ratio("log.cat_wc", times[0], times[1]);
  report_ratio("log.cat_lines", times[0], times[2]);
  report_ratio("log.sort", times[0], times[3]);
  report("log.peak", static_cast<double>(run_line("exec " + list).peak_kib));
  const std::string page = "/data/page.html";
  const UsedTime view = run_line("exec harrowmossctl view '" + std::string(kRun) + "' -o " + page);
  struct stat info = {};
  if (stat(page.c_str(), &info) != 0) fail("no page");
  report("log.view_s", static_cast<double>(view.cpu_ns) / 1e9);
  report("log.view_peak", static_cast<double>(view.peak_kib));
  report("log.page", static_cast<double>(info.st_size) / 1024);

  // A minute in the middle.
  const std::string range = "exec " + list + " --since 03:00 --until 03:00:59.999999";
  const BlockTimes ranges = alternate(
      9, {{"range", [&] { return run_line(range).wall_ns; }},
          {"grep", [&] { return run_line("grep -h '^11-20 03:00:' " + files).wall_ns; }}});
  std::vector<double> ms;
  for (const double ns : ranges[0]) ms.push_back(ns / 1e6);
  report_median("log.range_ms", ms);
  report_ratio("log.grep", ranges[0], ranges[1]);
}
