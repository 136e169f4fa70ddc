// Little space: the rescue of a full /data, and its end. The limits for a start are tested in
// Start.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include "phone/host/daemon.h"

namespace {

using Words = std::vector<std::string>;

constexpr int64_t kMiB = 1 << 20;
constexpr const char* kEnable = "persist.sys.zklog.enable";
constexpr int kCoreDump = 0x100;  // only sets a property
constexpr int kNet = 0x4;

// ---- The store's own files fill /data: all of them are deleted, and logging restarts in the
// monitor's process. ----

const std::string kMain = "/mobile/QZ201A-V1.02-main.txt";

// Open files of debug logcats outside the current run, deleted ones included.
Words stray_files(const Phone& phone) {
  const std::string current = working_path(run_name(phone)) + "/";
  Words stray;
  for (const PhoneProcess& logcat : debug_logcats(phone)) {
    for (const std::string& target : descriptors(phone, logcat.pid)) {
      if (target.find("/mobile/") != std::string::npos && target.find(current) != 0)
        stray.push_back(target);
    }
  }
  return stray;
}

void expect_one_set_of_logcats(const Phone& phone) {
  size_t count = 0;
  Words stray;
  EXPECT_TRUE(eventually([&] {
    count = debug_logcats(phone).size();
    stray = stray_files(phone);
    return count == 6 && stray.empty();
  })) << count
      << " logcats, stray: " << testing::PrintToString(stray);
}

void start_a_younger_run(Phone& phone) {
  ASSERT_EQ(start_logging(phone, kMobile | kNet | kCoreDump), 0);
}

void ask_for_another_mask(Phone& phone) {
  const std::string rescued = run_name(phone);
  ASSERT_TRUE(eventually([&] { return !phone.read(working_path(rescued) + kMain).empty(); }));
  phone.shell("log -t mark before the other mask");
  ASSERT_EQ(start_logging(phone, kMobile | kCoreDump), 0);
  expect_one_set_of_logcats(phone);
  EXPECT_EQ(overdue_kills(phone), Words());
  EXPECT_NE(phone.read(store_path(rescued) + kMain).find("before the other mask"),
            std::string::npos);
}

TEST(Space, RescuesDataFromTheStore) {
  const struct {
    const char* what;
    void (*before)(Phone& phone);
    void (*after)(Phone& phone);
    bool moving;  // a stop's move is under way: it gives its room back, so the rescue waits
  } rows[] = {
      {"the monitor's own run", nullptr, nullptr, true},
      {"a run that is younger than the monitor", start_a_younger_run, nullptr, false},
      {"a start with another mask behind it", nullptr, ask_for_another_mask, false},
  };
  const auto phones = boot_all({std::size(rows), quick_vendor({"--data-size", "200m"})});
  Words runs;
  int lock = -1;
  for (size_t i = 0; i < std::size(rows); i++) {
    SCOPED_TRACE(rows[i].what);
    Phone& phone = *phones[i];
    if (rows[i].moving) {
      lock = open(phone.inside("/data/misc/zelkalog").c_str(), O_RDONLY | O_CLOEXEC);
      ASSERT_EQ(flock(lock, LOCK_EX | LOCK_NB), 0);
    }
    for (const char* file : {"/data/local/kept", "/data/anr/kept"}) phone.write(file, "");
    ASSERT_EQ(start_logging(phone, kMobile | kNet), 0);
    ASSERT_TRUE(all_logcats_run(phone));
    if (rows[i].before != nullptr) rows[i].before(phone);
    runs.push_back(run_name(phone));
    phone.write("/sdcard/zelkalog/1#old/main.txt", "");
    phone.write("/data/vendor/zelkalog/common/old/diag.qmdl", "");
    fill(phone, working_path(runs[i]) + "/filling", 100 * kMiB);
  }
  for (size_t i = 0; i < std::size(rows); i++) {
    SCOPED_TRACE(rows[i].what);
    Phone& phone = *phones[i];
    if (rows[i].moving) {
      const std::string low =
          "logsize monitor is_deleting=0, catch_modem_log=0, is_extreme_deleting=1";
      EXPECT_TRUE(eventually([&] { return count_lines(phone, low) >= 2; }, kTimerMs));
      EXPECT_EQ(count_lines(phone, "storage extreme low, delete logs"), 0);
      close(lock);
    }
    ASSERT_TRUE(eventually([&] { return run_name(phone) != runs[i]; }, kTimerMs));
    ASSERT_TRUE(eventually([&] { return phone.getprop("sys.zelka.modemdump") == "on"; }));
    expect_one_set_of_logcats(phone);
    EXPECT_EQ(count_lines(phone, "storage extreme low, delete logs"), 1);
    EXPECT_EQ(phone.getprop(kEnable), "on");
    EXPECT_GT(available(phone, "/data"), 190 * kMiB);
    for (const std::string& gone :
         {working_path(runs[i]), store_path(runs[i]), std::string("/sdcard/zelkalog/1#old"),
          std::string("/data/vendor/zelkalog/common/old")})
      EXPECT_FALSE(phone.exists(gone)) << gone;
    for (const char* file : {"/data/local/kept", "/data/anr/kept"})
      EXPECT_TRUE(phone.exists(file)) << file;
    EXPECT_EQ(logcat_of(phone, "main").ppid, running_monitor(phone).pid);
    // Asking for the name, as a client may at any time, must not affect the workers.
    EXPECT_EQ(current_run(phone), run_name(phone));
    if (rows[i].after != nullptr) rows[i].after(phone);
    const std::string last = run_name(phone);
    EXPECT_EQ(stop_logging(phone), 0);  // also stops the monitor's run
    EXPECT_TRUE(phone.exists(store_path(last) + kMain));
    for (const char* file : {"/net/iptables-start.txt", "/net/iptables-stop.txt"}) {
      EXPECT_EQ(rows[i].after == nullptr, !phone.read(store_path(last) + file).empty()) << file;
    }
    EXPECT_TRUE(eventually_childless(phone));
  }
}

// Foreign files fill /data to the last block: logging ends, and they stay. A client's stop between
// the monitor's stop and start wins.
TEST(Space, EndsARescueWithoutAStart) {
  const auto phones = boot_all({2, quick_vendor({"--data-size", "200m"})});
  const std::string filling = "/data/local/filling";
  for (const auto& phone : phones) ASSERT_EQ(start_logging(*phone, kMobile), 0);
  Phone &others = *phones[0], &stopped = *phones[1];
  const std::string run = run_name(others);
  fill(others, filling, 0);
  others.shell("log -t mark -n 20000 'a line that finds no room'");
  EXPECT_TRUE(serves(others));
  // No block left counts as unknown; a few left are extremely low.
  ASSERT_EQ(truncate(others.inside(filling).c_str(), 150 * kMiB), 0);

  fill(stopped, working_path(run_name(stopped)) + "/filling", 100 * kMiB);
  const PhoneProcess monitor = running_monitor(stopped);
  ASSERT_TRUE(eventually(
      [&] {
        const auto ends = lines_with(daemon_log(stopped), "stop debug log over.");
        return !ends.empty() && ends.back().pid == monitor.pid;
      },
      kTimerMs));
  ASSERT_EQ(stop_logging(stopped), 0);
  EXPECT_EQ(count_lines(stopped, "deleting, just set pending state"), 1);
  EXPECT_TRUE(eventually_childless(stopped, kTimerMs));
  EXPECT_EQ(stopped.getprop("persist.sys.zklog.dir_sequence"), "1");
  EXPECT_EQ(stopped.getprop(kEnable), "off");

  ASSERT_TRUE(eventually([&] { return others.getprop(kEnable) == "off"; }, kTimerMs));
  ASSERT_TRUE(eventually([&] { return size_monitor(others).pid == 0; }, kTimerMs));
  EXPECT_EQ(count_lines(others, "storage extreme low, delete logs"), 1);
  EXPECT_TRUE(others.exists(filling));
  EXPECT_FALSE(others.exists(working_path(run)));
  // Also the replacements of those that failed to write.
  EXPECT_TRUE(eventually([&] { return debug_logcats(others).empty(); }));
  EXPECT_TRUE(serves(others));
  ASSERT_EQ(stop_logging(others), 0);
  EXPECT_TRUE(eventually_childless(others));
}

}  // namespace
