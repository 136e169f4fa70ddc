// Measuring the store and choosing the run to evict, against walks of bare system calls.
#include <dirent.h>
#include <fcntl.h>
#include <spawn.h>
#include <stdio.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "bench/harness.h"
#include "storage/size_monitor.h"
#include "storage/utils.h"

extern char** environ;

namespace {

constexpr char kTree[] = "/data/tree";
constexpr char kRuns[] = "/data/runs";
constexpr char kDu[] = "/data/local/tmp/du";  // GNU du, copied by bench/run.py

constexpr int kFilesPerDirectory = 100;
constexpr size_t kListingBytes = 32768;  // of one getdents64 call of the C library

// Grows the tree to `files` small files.
void grow_tree(int from, int files) {
  mkdir(kTree, 0777);
  char path[64];
  for (int i = from; i < files; i++) {
    if (i % kFilesPerDirectory == 0) {
      snprintf(path, sizeof(path), "%s/%06d", kTree, i / kFilesPerDirectory);
      mkdir(path, 0777);
    }
    snprintf(path, sizeof(path), "%s/%06d/main_%d.log", kTree, i / kFilesPerDirectory, i);
    const int fd = open(path, O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
    if (fd < 0 || ftruncate(fd, i % 5000) != 0) fail("no room for the tree");
    close(fd);
  }
}

// The minimum of any walk: list every directory, stat every entry.
int64_t raw_walk(int parent, const char* name) {
  const int dir = openat(parent, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  alignas(dirent64) char listing[kListingBytes];
  int64_t total = 0;
  for (long size; (size = syscall(SYS_getdents64, dir, listing, sizeof(listing))) > 0;) {
    for (long at = 0; at < size;) {
      const auto* entry = reinterpret_cast<const dirent64*>(listing + at);
      at += entry->d_reclen;
      if (strcmp(entry->d_name, ".") == 0 || strcmp(entry->d_name, "..") == 0) continue;
      struct stat info;
      if (fstatat(dir, entry->d_name, &info, 0) != 0) continue;
      total += info.st_size;
      if (S_ISDIR(info.st_mode)) total += raw_walk(dir, entry->d_name);
    }
  }
  close(dir);
  return total;
}

int64_t raw_size() {
  struct stat info;
  stat(kTree, &info);
  return info.st_size + raw_walk(AT_FDCWD, kTree);
}

// CPU time of a whole `du -sbL`.
int64_t time_du() {
  char* const argv[] = {const_cast<char*>("du"), const_cast<char*>("-sbL"),
                        const_cast<char*>(kTree), nullptr};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  pid_t pid;
  if (posix_spawn(&pid, kDu, &actions, nullptr, argv, environ) != 0) fail("no du");
  posix_spawn_file_actions_destroy(&actions);
  rusage used = {};
  int status = -1;
  if (wait4(pid, &status, 0, &used) != pid || status != 0) fail("du failed");
  const auto us = [](const timeval& time) { return time.tv_sec * INT64_C(1000000) + time.tv_usec; };
  return (us(used.ru_utime) + us(used.ru_stime)) * 1000;
}

void bench_tree(int files, int rounds, bool goal) {
  if (getFileSize(kTree) != raw_size()) fail("getFileSize and the raw walk differ");
  const BlockTimes times =
      alternate(rounds, {{"getFileSize", [] { return cpu_time_of([] { getFileSize(kTree); }); }},
                         {"raw walk", [] { return cpu_time_of([] { raw_size(); }); }},
                         {"du", time_du}});
  report_point("file-size", files,
               {median(times[0]) / 1e6, median(times[1]) / 1e6, median(times[2]) / 1e6});
  if (!goal) return;
  report_ratio("file_size.raw", times[0], times[1]);
  report_ratio("file_size.du", times[0], times[2]);
  const pid_t measuring = spawn([] {
    for (;;) {
      syscall(SYS_getppid);
      getFileSize(kTree);
    }
  });
  const int64_t calls = total_calls(count_calls(measuring, SYS_getppid, 1)) - 1;
  end(measuring);
  report("file_size.calls", static_cast<double>(calls) / (files + files / kFilesPerDirectory));
}

int bare_listing() {
  DIR* stream = opendir(kRuns);
  int directories = 0;
  while (const dirent* entry = readdir(stream)) {
    struct stat info;
    if (entry->d_name[0] == '.' || fstatat(dirfd(stream), entry->d_name, &info, 0) != 0) continue;
    directories += S_ISDIR(info.st_mode) ? 1 : 0;
  }
  closedir(stream);
  return directories;
}

}  // namespace

void bench_file_size() {
  pin();
  constexpr struct {
    int files;
    int rounds;
    bool goal;
  } kSizes[] = {{1000, 51, false},  {3000, 51, false},  {10000, 31, false},
                {30000, 15, false}, {100000, 51, true}, {300000, 5, false}};
  int before = 0;
  for (const auto& size : kSizes) {
    grow_tree(before, size.files);
    bench_tree(size.files, size.rounds, size.goal);
    before = size.files;
  }
}

void bench_oldest_run() {
  constexpr int kSizes[] = {10, 30, 100, 300, 1000, 3000, 10000};
  constexpr int kRounds = 101;
  pin();
  mkdir(kRuns, 0777);
  int made = 0;
  for (const int runs : kSizes) {
    for (; made < runs; made++) {
      char path[64];
      snprintf(path, sizeof(path), "%s/%d#03-09_07-05-02", kRuns, 20000 - made);
      if (mkdir(path, 0777) != 0) fail("no room for the runs");
    }
    const OldestRun oldest = findOldestLogDir(kRuns);
    if (oldest.count != runs || oldest.number != 20001 - runs || bare_listing() != runs)
      fail("the oldest run is another one");
    const BlockTimes times = alternate(
        kRounds, {{"findOldestLogDir", [] { return cpu_time_of([] { findOldestLogDir(kRuns); }); }},
                  {"bare", [] { return cpu_time_of([] { bare_listing(); }); }}});
    report_point("oldest-run", runs, {median(times[0]) / 1e3, median(times[1]) / 1e3});
    if (runs == 10000) report_ratio("oldest_run.ratio", times[0], times[1]);
  }
}
