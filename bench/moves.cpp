// Moving a run to shared storage with links for every file, against the bare command and the same
// flush.
#include <fcntl.h>
#include <stdio.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <filesystem>

#include "base/process.h"
#include "bench/harness.h"
#include "storage/flush.h"
#include "storage/shell.h"
#include "storage/utils.h"

namespace {

constexpr char kRun[] = "/data/misc/zelkalog/1#run";
constexpr char kMoved[] = "/sdcard/zelkalog/1#run";
constexpr int kFiles = 10000;
constexpr int kDirectories = 10;  // few, to keep their cost negligible
constexpr off_t kFileBytes = 20 * 1024;

void fill() {
  std::filesystem::remove_all(kMoved);
  for (int i = 0; i < kFiles; i++) {
    char path[64];
    snprintf(path, sizeof(path), "%s/%d", kRun, i % kDirectories);
    if (i < kDirectories) std::filesystem::create_directories(path);
    snprintf(path, sizeof(path), "%s/%d/main_%d.log", kRun, i % kDirectories, i);
    const int fd = open(path, O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
    if (fd < 0 || posix_fallocate(fd, 0, kFileBytes) != 0) fail("no room for the run");
    close(fd);
  }
}

void move_run() {
  if (move_dir("/data/misc/zelkalog/*", kStoreDir, nullptr) != 0) fail("the move failed");
}

// System calls of a whole move, without those of its mv.
int64_t calls_of_move(bool links) {
  const pid_t moving = spawn([links] {
    s_harrowmossd_pid = links ? getpid() : -1;  // only the main process makes links
    for (;;) {
      int status = 0;
      const pid_t filling = spawn(fill);
      if (wait_for(filling, &status) != filling || status != 0) _exit(1);
      syscall(SYS_getppid);
      move_run();
      syscall(SYS_getppid);
    }
  });
  const int64_t calls = total_calls(count_calls(moving, SYS_getppid, 2));
  end(moving);
  std::filesystem::remove_all(kRun);
  return calls;
}

}  // namespace

void bench_move() {
  constexpr int kRounds = 5;
  if (creat_dir(kStoreDir) != 0 || creat_dir("/data/misc/zelkalog") != 0) fail("no store");
  s_harrowmossd_pid = getpid();
  const auto linked = [] {
    fill();
    return wall_time_of(move_run);
  };
  const auto bare = [] {
    fill();
    return wall_time_of([] {
      run_shell("mv  /data/misc/zelkalog/* /sdcard/zelkalog/ ; chmod -R 777 /sdcard/zelkalog/");
      flush_storage(kStoreDir);
    });
  };
  const BlockTimes times = alternate(kRounds, {{"move", linked}, {"mv and flush", bare}});
  report_ratio("move.ratio", times[0], times[1]);
  const auto calls = static_cast<double>(calls_of_move(true) - calls_of_move(false));
  report("move.calls", calls / kFiles);
}
