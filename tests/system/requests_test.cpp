// The requests that only move and delete: what they take, what they leave, in which state.
#include <gtest/gtest.h>

#include "phone/host/daemon.h"

namespace {

using Words = std::vector<std::string>;

constexpr int kDeleteLogs = 12, kMoveTraces = 13;
constexpr const char* kOld = "/sdcard/zelkalog/7#01-01_00-00-00/mobile/main.txt";
constexpr const char* kTrace = "/data/local/traces/boot.ctrace";

TEST(Requests, MoveAndDeleteAsStated) {
  const struct {
    const char* what;
    int code;
    int mask;  // of the logging in progress; -1: none
    Words before, gone, kept, properties, commands, modes;
  } rows[] = {
      {"delete",
       kDeleteLogs,
       -1,
       {kOld, "/sdcard/zelkalog/.logger/old.txt", "/sdcard/mine", "/data/anr/heap/x",
        "/data/misc/zelkalog/8#old/x", "/data/misc/zelkalog/.moving-8#old/x",
        "/data/misc/zelkalog/.logger/own.txt", "/data/vendor/zelkalog/common/x",
        "/data/vendor/zelkalog/.DIAG.cfg", "/data/tombstones/x", kTrace},
       {"/sdcard/zelkalog/7#01-01_00-00-00", "/data/anr", "/data/misc/zelkalog/8#old",
        "/data/misc/zelkalog/.moving-8#old", "/data/vendor/zelkalog/common"},
       {"/sdcard/zelkalog/.logger/old.txt", "/sdcard/mine", "/data/misc/zelkalog/.logger/own.txt",
        "/data/vendor/zelkalog/.DIAG.cfg", "/data/tombstones/x", kTrace},
       {"persist.sys.zklog.dir_sequence=0"},
       {"rm -rf /sdcard/zelkalog/*", "rm -rf /data/anr", "rm -rf /data/misc/zelkalog/*",
        "rm -rf /data/vendor/zelkalog/*"},
       {}},
      {"move, nothing there yet",
       kMoveTraces,
       -1,
       {kTrace, "/data/local/traces/.hidden", "/data/anr/x"},
       {kTrace},
       {"/sdcard/zelkalog/traces/boot.ctrace", "/data/local/traces/.hidden", "/data/anr/x"},
       {},
       {"mv  /data/local/traces/* /sdcard/zelkalog/traces ; chmod -R 777 /sdcard/zelkalog/traces"},
       {"777 1015 /sdcard/zelkalog", "777 1015 /sdcard/zelkalog/traces"}},
      {"move, to older ones, while logging goes on",
       kMoveTraces,
       kMobile,
       {kTrace, "/sdcard/zelkalog/traces/older"},
       {kTrace},
       {"/sdcard/zelkalog/traces/boot.ctrace", "/sdcard/zelkalog/traces/older"},
       {},
       {"mv  /data/local/traces/* /sdcard/zelkalog/traces ; chmod -R 777 /sdcard/zelkalog/traces"},
       {"777 1015 /sdcard/zelkalog"}},
  };
  // Shared storage ignores modes, and /data/anr itself stays.
  const auto phones =
      boot_all({std::size(rows), quick_vendor({"--loose", "sdcard", "--loose", "data"})});
  for (size_t i = 0; i < std::size(rows); i++) {
    const auto& row = rows[i];
    const Phone& phone = *phones[i];
    SCOPED_TRACE(row.what);
    ASSERT_TRUE(settled(phone));
    if (row.mask >= 0) {
      ASSERT_EQ(start_logging(phone, row.mask), 0);
      running_monitor(phone);
    }
    for (const std::string& file : row.before) phone.write(file, file);
    phone.clear_calls();
    const size_t from = phone.properties_log().size();
    EXPECT_EQ(ask(phone, row.code, "", kSwitchMs), "");  // no field
    EXPECT_EQ(sets_of_daemon(phone, from), row.properties);
    EXPECT_EQ(commands_of(phone, phone.daemon_pid()), row.commands);
    for (const std::string& path : row.gone) EXPECT_FALSE(phone.exists(path)) << path;
    for (const std::string& path : row.kept) EXPECT_TRUE(phone.exists(path)) << path;
    for (const std::string& mode : row.modes)
      EXPECT_EQ(phone.run({"stat", "-c", "%a %u %n", mode.substr(mode.rfind(' ') + 1)}).out,
                mode + "\n");
    // The next run takes its number from the value written here.
    ASSERT_EQ(start_logging(phone, 0), 0);
    EXPECT_EQ(run_name(phone).substr(0, 2), row.mask >= 0 ? "2#" : "1#");
    EXPECT_EQ(stop_logging(phone), 0);
  }
}

}  // namespace
