// What the stop brings in from outside of the daemon's own workers: the vendor's moves and how long
// they are waited for, wifi logs, minidumps, heap dumps, traces, Bluetooth.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <memory>

#include "tests/system/daemon.h"

namespace {

using Words = std::vector<std::string>;

constexpr const char* kCommonDone = "sys.zelka.harrowmossd.action.mv_vendor_common_logs.done";
constexpr const char* kWifiDone = "sys.zelka.harrowmossd.action.mv_vendor_wifi_logs.done";

// The lines of the wait for the vendor, without the numbers that depend on the clock.
Words waiting_lines(const Phone& phone) {
  Words texts;
  for (const LogLine& line : daemon_log(phone)) {
    if (line.function != "wait_vendor_mv_action_done") continue;
    texts.push_back(std::to_string(line.priority) + " " + line.text);
  }
  return texts;
}

std::string timed_out(const std::string& property) {
  return "5 wait prop " + property + " timeout.";
}
std::string done(const std::string& property) {
  return "4 wait prop " + property + " done for ";
}

// All stops run side by side, each in its phone.
TEST(Harvest, WaitsForTheVendorWithinItsBudget) {
  const struct {
    const char* what;
    int32_t mask;
    Words properties;
    Words waits;  // beginnings of the lines
    int at_least_ms, at_most_ms;
  } rows[] = {
      {"answers", kMobile, {}, {done(kCommonDone)}, 0, 1900},
      {"never",
       kMobile,
       {"bench.vendor.common_delay_ms=never"},
       {timed_out(kCommonDone)},
       900,
       2800},
      {"too late",
       kMobile,
       {"bench.vendor.common_delay_ms=4000"},
       {timed_out(kCommonDone)},
       900,
       2800},
      {"late, with modem",
       kModem,
       {"bench.vendor.common_delay_ms=4000"},
       {done(kCommonDone)},
       3900,
       5500},
      {"never, with modem",
       kModem,
       {"bench.vendor.common_delay_ms=never"},
       {timed_out(kCommonDone)},
       13900,
       16500},
      {"never, with wifi: a second more for it",
       kWifi,
       {"bench.vendor.common_delay_ms=never", "bench.vendor.wifi_delay_ms=never"},
       {timed_out(kCommonDone), timed_out(kWifiDone)},
       14900,
       17500},
      {"wifi late",
       kWifi,
       {"bench.vendor.wifi_delay_ms=3000"},
       {done(kCommonDone), done(kWifiDone)},
       2700,
       4800},
      {"no vendor, no modem of the old kind",
       kMobile,
       {"bench.vendor=off", "ro.product.model=QZ102A-EU"},
       {},
       0,
       1500},
      {"old kind, modem", kModem, {"bench.vendor=off", "ro.product.model=QZ101A"}, {}, 2000, 3500},
      {"old kind, modem and wifi",
       kModem | kWifi,
       {"bench.vendor=off", "persist.sys.zelka.diag_mdlog_use_legacy=1"},
       {},
       3000,
       4500},
  };
  struct Stop {
    std::unique_ptr<Phone> phone;
    std::unique_ptr<Client> client;
    int64_t started_ms = 0;
  };
  std::vector<Stop> stops(std::size(rows));
  for (size_t i = 0; i < std::size(rows); i++) {
    Words options;
    for (const std::string& property : rows[i].properties)
      options.insert(options.end(), {"--prop", property});
    stops[i].phone = std::make_unique<Phone>(options, Phone::Until::kBooted);
  }
  for (size_t i = 0; i < std::size(rows); i++) {
    ASSERT_TRUE(stops[i].phone->wait_until_ready());
    ASSERT_EQ(start_logging(*stops[i].phone, rows[i].mask), 0);
  }
  for (Stop& stop : stops) {
    stop.client = std::make_unique<Client>(*stop.phone);
    stop.started_ms = monotonic_now_ms();
    ASSERT_TRUE(stop.client->send(request(3, 1)));
  }
  std::vector<size_t> order(std::size(rows));  // the shortest first: each is timed at its end
  for (size_t i = 0; i < order.size(); i++) order[i] = i;
  std::sort(order.begin(), order.end(),
            [&](size_t a, size_t b) { return rows[a].at_most_ms < rows[b].at_most_ms; });
  for (const size_t i : order) {
    constexpr int kLimitMs = 30000;
    EXPECT_EQ(stops[i].client->reply(kLimitMs).size(), 20u) << rows[i].what;
    const int64_t took = monotonic_now_ms() - stops[i].started_ms;
    EXPECT_GE(took, rows[i].at_least_ms) << rows[i].what;
    EXPECT_LE(took, rows[i].at_most_ms) << rows[i].what;
    const Words waits = waiting_lines(*stops[i].phone);
    ASSERT_EQ(waits.size(), rows[i].waits.size()) << rows[i].what;
    for (size_t k = 0; k < waits.size(); k++)
      EXPECT_EQ(waits[k].substr(0, rows[i].waits[k].size()), rows[i].waits[k]) << rows[i].what;
  }
}

TEST(Harvest, SortsWifiLogsByTheirWholeName) {
  Phone phone;
  ASSERT_TRUE(phone.ok());
  ASSERT_EQ(start_logging(phone, kMobile | kWifi), 0);
  const std::string run = run_name(phone);
  const Words wifi = {"cnss_fw_logs_", "cnss_fw_logs_7 with blanks;touch x", "host_driver_logs_a",
                      "txrx_pktlog_$(reboot)"};
  const Words others = {"cnss_fw_logs", "cnss_fw_logs_new\nline", "old_cnss_fw_logs_1",
                        "txrx_pktlo"};
  for (const std::string& name : wifi) phone.write(working_path(run) + "/" + name, name);
  for (const std::string& name : others) phone.write(working_path(run) + "/" + name, name);
  phone.write(working_path(run) + "/cnss_fw_logs_dir/inside", "");
  ASSERT_EQ(stop_logging(phone), 0);
  Words expected = wifi;  // and what the vendor's service has left beside the run's own
  expected.insert(expected.end(), {"cnss_fw_logs_000.txt", "cnss_fw_logs_001.txt"});
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(phone.list(store_path(run) + "/wlan_logs"), expected);
  for (const std::string& name : others)
    EXPECT_EQ(phone.read(store_path(run) + "/" + name), name) << name;
  EXPECT_TRUE(phone.exists(store_path(run) + "/cnss_fw_logs_dir/inside"));
}

TEST(Harvest, SortsWifiLogsOnceARun) {
  Phone phone;
  ASSERT_TRUE(phone.ok());
  ASSERT_EQ(start_logging(phone, kWifi), 0);
  const std::string run = run_name(phone);
  phone.write(working_path(run) + "/wlan_logs/there.txt", "");
  ASSERT_EQ(stop_logging(phone), 0);
  EXPECT_EQ(phone.list(store_path(run) + "/wlan_logs"), Words{"there.txt"});
  EXPECT_TRUE(phone.exists(store_path(run) + "/cnss_fw_logs_000.txt"));
  EXPECT_EQ(count_lines(phone, "dir exists : " + store_path(run) + "/wlan_logs"), 1);
}

// A directory that counts `bytes` with its own size.
void put_directory(const Phone& phone, const std::string& directory, int64_t bytes) {
  const std::string file = directory + "/dump";
  phone.write(file, "");
  struct stat st;
  ASSERT_EQ(stat(phone.inside(directory).c_str(), &st), 0);
  ASSERT_EQ(truncate(phone.inside(file).c_str(), bytes - st.st_size), 0);
}

TEST(Harvest, TakesDumpsAboveTheirSize) {
  const struct {
    const char* directory;
    int64_t bytes;
    const char* taken_to;
    bool takes;
  } rows[] = {
      {"/sdcard/zelkalog/.minidump", 524288, "/sdcard/zelkalog/minidump/dump", false},
      {"/sdcard/zelkalog/.minidump", 524289, "/sdcard/zelkalog/minidump/dump", true},
      {"/sdcard/Documents/oom", 65536, "/sdcard/zelkalog/oom/dump", false},
      {"/sdcard/Documents/oom", 65537, "/sdcard/zelkalog/oom/dump", true},
  };
  Phone phone(quick_vendor());
  ASSERT_TRUE(phone.ok());
  for (const auto& row : rows) {
    put_directory(phone, row.directory, row.bytes);
    phone.write("/sdcard/zelkalog/minidump/of the last time", "");
    ASSERT_EQ(stop_logging(phone), 0);
    EXPECT_EQ(phone.exists(row.taken_to), row.takes) << row.directory << " " << row.bytes;
    EXPECT_EQ(phone.exists(row.directory), !row.takes) << row.directory << " " << row.bytes;
    const bool replaced = row.takes && std::string(row.directory).find("mini") != std::string::npos;
    EXPECT_EQ(phone.exists("/sdcard/zelkalog/minidump/of the last time"), !replaced);
  }
  EXPECT_EQ(count_lines(phone, "delete old minidump log"), 1);
  EXPECT_EQ(count_lines(phone, "cp apps heapdump end"), 1);
}

TEST(Harvest, AsksTheVendorForNewMinidumps) {
  Phone phone({"--prop", "vendor.harrowmossd.minidump.status=1"});
  ASSERT_TRUE(phone.ok());
  ASSERT_EQ(stop_logging(phone), 0);
  EXPECT_TRUE(phone.exists("/sdcard/zelkalog/minidump/minidump_0.elf"));
  EXPECT_EQ(phone.getprop("sys.harrowmossd.minidump.path"), "/sdcard/zelkalog/minidump");

  phone.setprop("bench.vendor.minidump_delay_ms", "never");
  const int64_t start = monotonic_now_ms();
  ASSERT_EQ(stop_logging(phone), 0);
  EXPECT_GE(monotonic_now_ms() - start, 2500);
  EXPECT_LT(monotonic_now_ms() - start, 5500);  // and 2 s at most for the rest
  EXPECT_EQ(count_lines(phone,
                        "wait prop sys.zelka.harrowmossd.action.mv_minidump_logs_done "
                        "timeout."),
            1);
}

TEST(Harvest, MovesTracesWhereverItCan) {
  constexpr int kSystrace = 0x200;
  const struct {
    bool store_blocked;
    const char* trace;
    const char* says;
  } rows[] = {
      {false, "/sdcard/zelkalog/traces/boot.ctrace", "done moving traces."},
      {true, "/data/misc/zelkalog/traces/boot.ctrace", "done moving traces.."},
  };
  for (const auto& row : rows) {
    Phone phone(quick_vendor());
    ASSERT_TRUE(phone.ok());
    ASSERT_EQ(start_logging(phone, kSystrace), 0);
    phone.write("/data/local/traces/boot.ctrace", "trace\n");
    if (row.store_blocked)
      phone.shell("rm -rf /sdcard/zelkalog; echo no directory > /sdcard/zelkalog");
    ASSERT_EQ(stop_logging(phone), 0);
    EXPECT_EQ(phone.read(row.trace), "trace\n") << row.says;
    EXPECT_FALSE(phone.exists("/data/local/traces/boot.ctrace")) << row.says;
    EXPECT_EQ(rest_of_line(phone, "done moving traces."), row.store_blocked ? "." : "");
    // The service was told: start, stop.
    EXPECT_TRUE(eventually([&] {
      return phone.read("/dev/bench/systrace.log") == "00000000\n00000002\n";
    })) << phone.read("/dev/bench/systrace.log");
  }
}

TEST(Harvest, BringsBluetoothLogsOfAPhoneThatSnoops) {
  Phone phone(quick_vendor());
  ASSERT_TRUE(phone.ok());
  phone.write("/data/misc/bluetooth/logs/main.cfa", "not yet\n");
  ASSERT_EQ(stop_logging(phone), 0);
  EXPECT_TRUE(phone.exists("/data/misc/bluetooth/logs/main.cfa"));
  EXPECT_FALSE(phone.exists("/sdcard/zelkalog/btlog"));
  phone.write("/data/misc/bluetooth/logs/snoops/hci.log", "snooped\n");
  ASSERT_EQ(stop_logging(phone), 0);
  EXPECT_EQ(tree(phone, "/sdcard/zelkalog/btlog"),
            (Words{"logs/", "logs/main.cfa", "logs/snoops/", "logs/snoops/hci.log"}));
  EXPECT_FALSE(phone.exists("/data/misc/bluetooth/logs"));
  EXPECT_EQ(phone.values_of("log.wl.capture.ssrdump"), (Words{"1", "1"}));
}

}  // namespace
