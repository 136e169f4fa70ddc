// Little room: the limits below which logging is not begun, the rescue of a full /data, and full
// volumes during a capture.
#include <gtest/gtest.h>

#include "phone/host/daemon.h"

namespace {

using Words = std::vector<std::string>;

constexpr int64_t kMiB = 1 << 20, kBlock = 4096;
constexpr const char* kEnable = "persist.sys.zklog.enable";
constexpr int kCyclesMs = 60000;  // the monitor looks every 5 s; a busy machine is slow to follow

TEST(Space, DecidesAtTheBlockWhetherLoggingBegins) {
  const struct {
    const char* volume;
    int64_t left;
    bool begins;
    const char* says;
  } rows[] = {
      {"/sdcard", 64 * kMiB, false, "There is not enough disk space left to capture the log"},
      {"/sdcard", 64 * kMiB + kBlock, true, ""},
      {"/data", 128 * kMiB, false,
       "There is not enough data space left to capture the log, data_space=134217728"},
      {"/data", 128 * kMiB + kBlock, true, ""},
  };
  std::vector<std::unique_ptr<Phone>> phones;
  for (size_t i = 0; i < std::size(rows); i++)
    phones.push_back(std::make_unique<Phone>(quick_vendor(), Phone::Until::kBooted));
  for (size_t i = 0; i < std::size(rows); i++) {
    Phone& phone = *phones[i];
    ASSERT_TRUE(phone.wait_until_ready());
    ASSERT_TRUE(settled(phone));
    phone.setprop("persist.sys.logger.enable", "off");  // the self log would take blocks
    phone.setprop(kEnable, "off");                      // so that the saved properties have theirs
    phone.setprop("persist.sys.zklog.type", "0");
    fill(phone, std::string(rows[i].volume) + "/filling", rows[i].left);
    ASSERT_EQ(available(phone, rows[i].volume), rows[i].left) << i;
    ASSERT_EQ(start_logging(phone, 0), 0);
    EXPECT_EQ(phone.getprop(kEnable), rows[i].begins ? "on" : "off") << i;
    EXPECT_EQ(run_name(phone).empty(), !rows[i].begins) << i;
    EXPECT_TRUE(eventually([&] { return size_monitor(phone).pid > 0 || !rows[i].begins; })) << i;
    const auto said = lines_with(daemon_log(phone), "There is not enough");
    EXPECT_EQ(said.size(), rows[i].begins ? 0u : 1u) << i;
    for (const LogLine& line : said) EXPECT_EQ(line.text, rows[i].says);
  }
}

// The store's own files fill /data: everything in it goes, and logging starts anew.
TEST(Space, RescuesDataFromTheStore) {
  Phone phone(quick_vendor({"--data-size", "200m"}));
  phone.write("/data/local/kept", "");
  phone.write("/data/anr/kept", "");
  ASSERT_EQ(start_logging(phone, kMobile), 0);
  const std::string first = run_name(phone);
  phone.write("/sdcard/zelkalog/1#old/main.txt", "");
  phone.write("/data/vendor/zelkalog/common/old/diag.qmdl", "");
  fill(phone, working_path(first) + "/filling", 100 * kMiB);
  ASSERT_TRUE(eventually([&] { return run_name(phone).compare(0, 2, "2#") == 0; }, kCyclesMs));
  ASSERT_TRUE(all_logcats_run(phone));
  EXPECT_EQ(count_lines(phone, "storage extreme low, delete logs"), 1);
  EXPECT_EQ(phone.getprop(kEnable), "on");
  EXPECT_GT(available(phone, "/data"), 190 * kMiB);
  for (const std::string& gone :
       {working_path(first), store_path(first), std::string("/sdcard/zelkalog/1#old"),
        std::string("/data/vendor/zelkalog/common/old")})
    EXPECT_FALSE(phone.exists(gone)) << gone;
  EXPECT_TRUE(phone.exists("/data/local/kept"));
  EXPECT_TRUE(phone.exists("/data/anr/kept"));
  EXPECT_EQ(logcat_of(phone, "main").ppid, running_monitor(phone).pid);
  ASSERT_EQ(stop_logging(phone), 0);
  EXPECT_TRUE(eventually_childless(phone));
}

// Somebody else's files fill it to the last block: logging ends, theirs stay.
TEST(Space, GivesUpWhenOthersFillData) {
  Phone phone(quick_vendor({"--data-size", "200m"}));
  ASSERT_EQ(start_logging(phone, kMobile), 0);
  const std::string run = run_name(phone);
  fill(phone, "/data/local/filling", 0);
  phone.shell("log -t mark -n 20000 'a line that finds no room'");
  EXPECT_TRUE(serves(phone));
  // No block is left, which counts as unknown; a few are extremely low.
  ASSERT_EQ(truncate(phone.inside("/data/local/filling").c_str(), 150 * kMiB), 0);
  ASSERT_TRUE(eventually([&] { return phone.getprop(kEnable) == "off"; }, kCyclesMs));
  ASSERT_TRUE(eventually([&] { return size_monitor(phone).pid == 0; }, kCyclesMs));
  EXPECT_EQ(count_lines(phone, "storage extreme low, delete logs"), 1);
  EXPECT_TRUE(phone.exists("/data/local/filling"));
  EXPECT_FALSE(phone.exists(working_path(run)));
  // Also those that had replaced one that failed to write.
  EXPECT_TRUE(eventually([&] { return debug_logcats(phone).empty(); }));
  EXPECT_TRUE(serves(phone));
  ASSERT_EQ(stop_logging(phone), 0);
  EXPECT_TRUE(eventually_childless(phone));
}

TEST(Space, KeepsARunThatDoesNotFitTheStore) {
  Phone phone(quick_vendor());
  ASSERT_EQ(start_logging(phone, kMobile), 0);
  const std::string first = run_name(phone);
  phone.shell("log -t mark -n 3000 'a line that makes the run larger'");
  phone.write("/sdcard/mine", "of the user\n");
  fill(phone, "/sdcard/filling", 16 * kBlock);
  const pid_t monitor = running_monitor(phone).pid;
  EXPECT_TRUE(serves(phone));
  ASSERT_EQ(stop_logging(phone), 0);
  const std::string file = "/mobile/QZ201A-V1.02-main.txt";
  const std::string text = phone.read(working_path(first) + file);
  EXPECT_NE(text.find("makes the run larger"), std::string::npos);
  EXPECT_EQ(count_lines(phone, "no room to move /data/misc/zelkalog/* to /sdcard/zelkalog/: "), 1);
  EXPECT_FALSE(phone.exists(store_path(first) + "/mobile"));
  EXPECT_EQ(phone.read("/sdcard/mine"), "of the user\n");
  EXPECT_TRUE(eventually([&] { return !is_alive(phone, monitor); }));

  // Not begun: there is no room.
  ASSERT_EQ(start_logging(phone, kMobile), 0);
  EXPECT_EQ(phone.getprop(kEnable), "off");

  ASSERT_EQ(unlink(phone.inside("/sdcard/filling").c_str()), 0);
  ASSERT_EQ(start_logging(phone, kMobile), 0);
  const std::string second = run_name(phone);
  EXPECT_EQ(second.substr(0, 2), "2#");
  ASSERT_EQ(stop_logging(phone), 0);
  EXPECT_EQ(phone.read(store_path(first) + file).compare(0, text.size(), text), 0);
  EXPECT_TRUE(phone.exists(store_path(second) + file));
  EXPECT_EQ(phone.list("/data/misc/zelkalog"), Words{".logger"});
}

}  // namespace
