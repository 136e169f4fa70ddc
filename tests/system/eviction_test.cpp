// The quota of the store: when runs are evicted, which, and the effect of their names. Sizes are
// made with sparse files.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/syscall.h>

#include <filesystem>

#include "phone/host/daemon.h"

namespace fs = std::filesystem;

namespace {

using Words = std::vector<std::string>;

constexpr int64_t kGiB = INT64_C(1) << 30, kMiB = 1 << 20, kHalfMiB = 1 << 19;
constexpr const char* kStore = "/sdcard/zelkalog/";
constexpr const char* kWorking = "/data/misc/zelkalog/";
constexpr const char* kDate = "#01-01_00-00-00";

void put_sparse(const Phone& phone, const std::string& path, int64_t bytes) {
  phone.write(path, "");
  EXPECT_EQ(truncate(phone.inside(path).c_str(), bytes), 0) << errno_text(path);
}

// The monitor's actions in order, as the ends of its lines.
Words evicted(const Phone& phone) {
  Words names;
  for (const LogLine& line : daemon_log(phone)) {
    for (const std::string start : {"now delete oldest dir ", "now delete "}) {
      if (line.text.compare(0, start.size(), start) != 0) continue;
      names.push_back(line.text.substr(start.size()));
      break;
    }
  }
  return names;
}

// True when the monitor has checked the sizes and waits for the next check.
bool monitor_waits(const Phone& phone) {
  const std::string call =
      phone.read("/proc/" + std::to_string(size_monitor(phone).pid) + "/syscall");
  return call.compare(0, call.find(' '), std::to_string(SYS_clock_nanosleep)) == 0;
}

TEST(Eviction, BeginsAboveTheQuota) {
  const struct {
    const char* what;
    int32_t mask;
    const char* quota;  // "persist.sys.zelka.log.size"; "": the default, 20
    int64_t bytes;      // of the one old run; directories and the self log add less than 512 KiB
    bool evicts;
  } rows[] = {
      {"20 GiB", 0, "", 20 * kGiB + kHalfMiB, false},
      {"a MiB above", 0, "", 20 * kGiB + kMiB, true},
      {"15.5 GiB with wifi", kWifi, "", 31 * kGiB / 2, true},
      {"15.5 GiB with modem", kModem, "", 31 * kGiB / 2, true},
      {"one MiB of a quota of nothing", 0, "0", kMiB, true},
  };
  std::vector<Words> options;
  for (const auto& row : rows)  // an empty value counts as unset
    options.push_back(
        quick_vendor({"--prop", std::string("persist.sys.zelka.log.size=") + row.quota}));
  const auto phones = boot_all(options);
  for (size_t i = 0; i < std::size(rows); i++) {
    const Phone& phone = *phones[i];
    put_sparse(phone, std::string(kStore) + "1" + kDate + "/mobile/main.txt", rows[i].bytes);
    ASSERT_EQ(start_logging(phone, rows[i].mask), 0);
  }
  for (size_t i = 0; i < std::size(rows); i++) {
    const Phone& phone = *phones[i];
    ASSERT_TRUE(eventually([&] { return monitor_waits(phone); })) << rows[i].what;
    EXPECT_EQ(evicted(phone), rows[i].evicts ? Words{std::string(kStore) + "1" + kDate} : Words())
        << rows[i].what;
    EXPECT_EQ(phone.exists(std::string(kStore) + "1" + kDate), !rows[i].evicts) << rows[i].what;
  }
}

// Number 0 is never evicted, so the quota stays exceeded until nothing else is left: then
// everything is deleted, and the monitor restarts logging.
TEST(Eviction, EvictsTheOldestOneByOneThenRestarts) {
  Phone phone(quick_vendor({"--prop", "persist.sys.zklog.dir_sequence=9"}));
  const std::string never = std::string(kStore) + "0" + kDate;
  put_sparse(phone, never + "/main.txt", 21 * kGiB);
  const Words order = {
      std::string(kStore) + "007" + kDate,
      std::string(kStore) + "9" + kDate,
      std::string(kWorking) + "8" + kDate,
  };
  for (const std::string& run : order) phone.write(run + "/main.txt", "old\n");
  phone.write(std::string(kStore) + "3#a plain file", "");
  phone.write(std::string(kStore) + "traces/of.somebody", "");
  ASSERT_EQ(start_logging(phone, kMobile), 0);
  const std::string current = working_path(run_name(phone));
  const std::string restart = "we have deleted logs all we can, but still not enough";
  for (size_t i = 0; i < order.size(); i++) {
    ASSERT_TRUE(eventually([&] { return evicted(phone).size() > i; }, kTimerMs));
    ASSERT_TRUE(eventually([&] { return !phone.exists(order[i]); }));
    for (size_t later = i + 1; later < order.size(); later++)
      EXPECT_TRUE(phone.exists(order[later])) << "together with " << order[i];
    EXPECT_TRUE(all_logcats_run(phone));
  }
  EXPECT_EQ(evicted(phone), order);
  EXPECT_TRUE(phone.exists(current));
  EXPECT_TRUE(phone.exists(std::string(kStore) + "3#a plain file"));
  EXPECT_EQ(count_lines(phone, restart), 0);

  // Only the current run is left.
  const pid_t monitor = size_monitor(phone).pid, old_logcat = logcat_of(phone, "main").pid;
  ASSERT_TRUE(eventually([&] { return run_name(phone).compare(0, 3, "11#") == 0; }, kTimerMs));
  ASSERT_TRUE(eventually([&] { return logcats(phone).size() == 6u && monitor_waits(phone); }));
  EXPECT_EQ(count_lines(phone, restart), 1);
  EXPECT_FALSE(is_alive(phone, old_logcat));
  EXPECT_EQ(logcat_of(phone, "main").ppid, monitor);
  EXPECT_FALSE(phone.exists(never));
  EXPECT_FALSE(phone.exists(current));
  EXPECT_EQ(phone.getprop("persist.sys.zklog.enable"), "on");

  // A run that the monitor started continues without it, and ends with the next stop.
  phone.signal(monitor, SIGKILL);
  ASSERT_TRUE(eventually([&] { return logcat_of(phone, "main").ppid == phone.daemon_pid(); }));
  EXPECT_TRUE(all_logcats_run(phone));
  phone.shell("log -t mark kept to the end");
  const std::string run = run_name(phone);
  ASSERT_EQ(stop_logging(phone), 0);
  EXPECT_TRUE(eventually_childless(phone));
  EXPECT_NE(phone.read(store_path(run) + "/mobile/QZ201A-V1.02-main.txt").find("kept to the end"),
            std::string::npos);
}

// A hidden name is not deleted: neither eviction nor the last resort reduces the sizes.
TEST(Eviction, RestartsOnceWhenThatDoesNotHelp) {
  Phone phone(quick_vendor({"--prop", "persist.sys.zelka.log.size=1"}));
  const std::string hidden = std::string(kStore) + ".hidden";
  put_sparse(phone, hidden, 2 * kGiB);
  ASSERT_EQ(start_logging(phone, kMobile), 0);
  ASSERT_TRUE(eventually_logged(phone, "still over quota after a restart", 1, kTimerMs));
  ASSERT_TRUE(eventually([&] { return monitor_waits(phone); }));
  const auto lines = lines_with(daemon_log(phone), "still over quota after a restart");
  EXPECT_NE(lines[0].text.find(hidden + " takes 2147483648 bytes"), std::string::npos)
      << lines[0].text;
  EXPECT_EQ(count_lines(phone, "we have deleted logs all we can"), 1);
  EXPECT_EQ(run_name(phone).compare(0, 2, "2#"), 0) << run_name(phone);
  EXPECT_TRUE(all_logcats_run(phone));
  EXPECT_EQ(stop_logging(phone), 0);
}

// The switches for test runs are tested with the properties.
TEST(Eviction, KeepsTestRuns) {
  Phone phone(quick_vendor({"--prop", "sys.zelka.monkey=true"}));
  const std::string old = std::string(kStore) + "1" + kDate;
  put_sparse(phone, old + "/main.txt", 21 * kGiB);
  ASSERT_EQ(start_logging(phone, kMobile), 0);
  ASSERT_TRUE(eventually_logged(phone, "run out of monitorLogSizeThread!!!"));
  EXPECT_TRUE(eventually([&] { return size_monitor(phone).pid == 0; }));
  EXPECT_EQ(count_lines(phone, "in cts or monkey, do not delete logs"), 1);
  EXPECT_EQ(phone.getprop("persist.sys.zelka.log.del"), "false");
  EXPECT_EQ(phone.getprop("persist.sys.zelka.log.size"), "30");
  EXPECT_TRUE(phone.exists(old));
  EXPECT_TRUE(all_logcats_run(phone));
}

TEST(Eviction, PassesNoNameToTheShell) {
  const Program trap("echo \"$@\" >> /data/sprung");  // a `touch` that leaves a trace
  Phone phone(quick_vendor({"--file", trap.over("/system/bin/touch"), "--loose", "sdcard", "--prop",
                            "persist.sys.zklog.dir_sequence=50"}));
  phone.write("/data/anr/kept", "");
  put_sparse(phone, std::string(kStore) + "0" + kDate + "/main.txt", 21 * kGiB);
  const std::string long_name = "4#" + std::string(248, 'x');
  const std::string hostile = "1#;touch PWNED $(touch PWNED)`touch PWNED`'\"\\*?";
  const std::string with_newline = "1#new\n;touch PWNED";
  for (const std::string& name : {hostile, long_name, with_newline})
    phone.write(kStore + name + "/main.txt", "old\n");
  fs::create_directory_symlink("/data/anr", phone.inside(std::string(kStore) + "6#link"));
  ASSERT_EQ(start_logging(phone, kMobile), 0);
  const pid_t monitor = running_monitor(phone).pid;
  const auto gone = [&phone](const std::string& name) { return !phone.exists(kStore + name); };
  for (const std::string& name : {hostile, long_name, std::string("6#link")})
    ASSERT_TRUE(eventually([&] { return gone(name); }, kTimerMs)) << name;
  EXPECT_TRUE(phone.exists("/data/anr/kept"));
  EXPECT_FALSE(phone.exists("/data/sprung")) << phone.read("/data/sprung");
  EXPECT_EQ(size_monitor(phone).pid, monitor);
  EXPECT_FALSE(gone(with_newline));  // no numbered name: kept
  EXPECT_EQ(count_lines(phone, "name too long for a command: /sdcard/zelkalog/" + long_name), 1);
  EXPECT_EQ(stop_logging(phone), 0);
  EXPECT_FALSE(phone.exists("/data/sprung"));
}

// An `rm` that waits as long as /data/hold exists.
TEST(Eviction, FinishesADeletionBeforeItEnds) {
  const Program slow("while [ -e /data/hold ]; do sleep 0.02; done\nexec toybox rm \"$@\"");
  Phone phone(quick_vendor({"--file", slow.over("/system/bin/rm")}));
  ASSERT_TRUE(settled(phone));
  const std::string old = std::string(kStore) + "1" + kDate;
  put_sparse(phone, old + "/main.txt", 21 * kGiB);
  phone.write("/data/hold", "");
  ASSERT_EQ(start_logging(phone, 0), 0);
  ASSERT_TRUE(eventually([&] { return evicted(phone) == Words{old}; }));
  const pid_t monitor = size_monitor(phone).pid;
  ASSERT_EQ(stop_logging(phone), 0);
  EXPECT_TRUE(eventually_logged(phone, "deleting, just set pending state"));
  EXPECT_EQ(count_lines(phone, "receive signal 10, is_deleting=1"), 1);
  EXPECT_TRUE(is_alive(phone, monitor));
  EXPECT_TRUE(phone.exists(old));
  ASSERT_EQ(unlink(phone.inside("/data/hold").c_str()), 0);
  EXPECT_TRUE(eventually([&] { return !is_alive(phone, monitor); }, kTimerMs));
  EXPECT_FALSE(phone.exists(old));
  EXPECT_EQ(count_lines(phone, "run out of monitorLogSizeThread!!!"), 1);
  EXPECT_TRUE(eventually_childless(phone));
}

}  // namespace
