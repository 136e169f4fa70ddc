// What the stop collects besides the workers' files: the vendor's moves and the wait for them, wifi
// logs, minidumps, heap dumps, traces, Bluetooth.
#include <gtest/gtest.h>
#include <inttypes.h>
#include <sys/stat.h>

#include <memory>

#include "phone/host/daemon.h"

namespace {

using Words = std::vector<std::string>;

// A stop's wait for the vendor, from its log lines.
struct VendorWait {
  int64_t began_ms = 0, ended_ms = 0;
  int64_t start_s = 0, now_s = 0;  // the time between them is taken off the budget
  int budget_s = -1;               // -1: none was logged
  Words outcomes;                  // "PROPERTY done" or "PROPERTY timeout."
};

VendorWait vendor_wait(const Phone& phone) {
  VendorWait wait;
  for (const LogLine& line : daemon_log(phone)) {
    sscanf(line.text.c_str(), "start_secs=%" SCNd64 ", now=%" SCNd64, &wait.start_s, &wait.now_s);
    sscanf(line.text.c_str(), "wait timeout %ds", &wait.budget_s);
    if (line.function == "wait_vendor_mv_actions_done" && line.text == "function invoked.")
      wait.began_ms = line.time_ms;
    if (line.text == "copy self log start") wait.ended_ms = line.time_ms;
    const Words words = split(line.text, " ");  // "wait prop NAME timeout." or "... done for 1.2s."
    if (line.function == "wait_vendor_mv_action_done" && words.size() >= 4)
      wait.outcomes.push_back(words[2] + " " + words[3]);
  }
  return wait;
}

constexpr int64_t kRoundingMs = 20;  // log times are truncated, and their clock is adjusted

// All stops run in parallel, each in its phone. SecondRun tests the number of polls.
TEST(Harvest, WaitsForTheVendorWithinItsBudget) {
  const std::string common = "sys.zelka.harrowmossd.action.mv_vendor_common_logs.done ";
  const std::string wifi = "sys.zelka.harrowmossd.action.mv_vendor_wifi_logs.done ";
  constexpr int kNone = -1;  // an old model's vendor does not answer: fixed pause
  const struct {
    const char* what;
    int32_t mask;
    Words properties;
    int budget_s;  // from the request on
    Words outcomes;
    int pause_ms, needed_s;  // minimum on a slow machine
    // clang-format off
  } rows[] = {
      {"answers", kModem, {}, 15, {common + "done"}, 0, 2},
      {"late", kModem, {"bench.vendor.common_delay_ms=4000"}, 15, {common + "done"}, 0, 6},
      {"never", kMobile, {"bench.vendor.common_delay_ms=never"}, 2, {common + "timeout."}, 0, 1},
      {"wifi late", kWifi, {"bench.vendor.wifi_delay_ms=3000"}, 15,
       {common + "done", wifi + "done"}, 0, 5},
      {"old, neither", kMobile, {"ro.product.model=QZ102A-EU"}, kNone, {}, 0, 0},
      {"old, modem", kModem, {"ro.product.model=QZ101A"}, kNone, {}, 2000, 0},
      {"old, both", kModem | kWifi, {"ro.product.model=QZ101A"}, kNone, {}, 3000, 0},
      // clang-format on
  };
  std::vector<Words> options(std::size(rows));
  for (size_t i = 0; i < std::size(rows); i++) {
    for (const std::string& property : rows[i].properties)
      options[i].insert(options[i].end(), {"--prop", property});
  }
  const auto phones = boot_all(options);
  std::vector<std::unique_ptr<Client>> clients;
  for (size_t i = 0; i < std::size(rows); i++) {
    ASSERT_EQ(start_logging(*phones[i], rows[i].mask), 0);
    clients.push_back(std::make_unique<Client>(*phones[i]));
    ASSERT_TRUE(clients[i]->send(request(3, 1)));
  }
  for (size_t i = 0; i < std::size(rows); i++) {
    SCOPED_TRACE(rows[i].what);
    EXPECT_EQ(clients[i]->reply(kSwitchMs).size(), 20u);
    const VendorWait wait = vendor_wait(*phones[i]);
    const int64_t left = std::max<int64_t>(0, rows[i].budget_s - (wait.now_s - wait.start_s));
    EXPECT_EQ(wait.budget_s, rows[i].budget_s == kNone ? kNone : left);
    if (wait.budget_s >= rows[i].needed_s || rows[i].budget_s == kNone) {
      EXPECT_EQ(wait.outcomes, rows[i].outcomes);
    }
    EXPECT_GE(wait.ended_ms - wait.began_ms + kRoundingMs, rows[i].pause_ms);
  }
}

TEST(Harvest, SortsWifiLogsByTheirWholeName) {
  Phone phone;
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
  Words expected = wifi;  // and the files of the vendor's service
  expected.insert(expected.end(), {"cnss_fw_logs_000.txt", "cnss_fw_logs_001.txt"});
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(phone.list(store_path(run) + "/wlan_logs"), expected);
  for (const std::string& name : others)
    EXPECT_EQ(phone.read(store_path(run) + "/" + name), name) << name;
  EXPECT_TRUE(phone.exists(store_path(run) + "/cnss_fw_logs_dir/inside"));

  // Already sorted: unchanged.
  ASSERT_EQ(start_logging(phone, kWifi), 0);
  const std::string next = run_name(phone);
  phone.write(working_path(next) + "/wlan_logs/there.txt", "");
  ASSERT_EQ(stop_logging(phone), 0);
  EXPECT_EQ(phone.list(store_path(next) + "/wlan_logs"), Words{"there.txt"});
  EXPECT_TRUE(phone.exists(store_path(next) + "/cnss_fw_logs_000.txt"));
  EXPECT_EQ(count_lines(phone, "dir exists : " + store_path(next) + "/wlan_logs"), 1);
}

// A directory that counts `bytes`, including its own size.
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
  ASSERT_EQ(stop_logging(phone), 0);
  EXPECT_TRUE(phone.exists("/sdcard/zelkalog/minidump/minidump_0.elf"));
  EXPECT_EQ(phone.getprop("sys.harrowmossd.minidump.path"), "/sdcard/zelkalog/minidump");

  phone.setprop("bench.vendor.minidump_delay_ms", "never");
  ASSERT_EQ(stop_logging(phone), 0);
  const auto log = daemon_log(phone);
  const auto asked = lines_with(log, "function invoked. has_minidump 1");
  const auto given_up =
      lines_with(log, "wait prop sys.zelka.harrowmossd.action.mv_minidump_logs_done timeout.");
  ASSERT_EQ(asked.size(), 2u);  // this is the second stop
  ASSERT_EQ(given_up.size(), 1u);
  const int64_t waited = given_up[0].time_ms - asked[1].time_ms + kRoundingMs;
  EXPECT_GE(waited, 2500);
  EXPECT_LT(waited, 12000);
}

TEST(Harvest, KeepsTracesThatTheStoreCannotStore) {
  constexpr int kSystrace = 0x200;
  Phone phone(quick_vendor());
  ASSERT_EQ(start_logging(phone, kSystrace), 0);
  phone.write("/data/local/traces/boot.ctrace", "trace\n");
  // More than once: the size monitor creates the store when it starts.
  ASSERT_TRUE(eventually([&] {
    return phone
               .shell(
                   "rm -rf /sdcard/zelkalog; echo none > /sdcard/zelkalog; test -f "
                   "/sdcard/zelkalog")
               .status == 0;
  }));
  ASSERT_EQ(stop_logging(phone), 0);
  EXPECT_EQ(phone.read("/data/misc/zelkalog/traces/boot.ctrace"), "trace\n");
  EXPECT_FALSE(phone.exists("/data/local/traces/boot.ctrace"));
  EXPECT_EQ(rest_of_line(phone, "done moving traces."), ".");
}

// Owned by system_server, mode 0600. Files of other users stay unread and are reported; a link is
// copied as a link; a FIFO is not opened.
TEST(Harvest, TakesTracesThatOnlyTheSystemMayRead) {
  Phone phone(quick_vendor());
  const char* const plant =
      "cd /data/anr && umask 077 && mkdir -p heap/deep app && echo t > anr_1 && echo h > "
      "heap/deep/dump &&"
      "echo a > app/private && chown -R system:system . && chown 10100:10100 app/private &&"
      "echo s > /data/secret && chown system:system /data/secret && ln -s /data/secret link";
  ASSERT_EQ(phone.shell(plant).status, 0);
  const auto modes = [&] { return phone.shell("ls -lnR /data/anr /data/secret").out; };
  const std::string before = modes();
  ASSERT_EQ(start_logging(phone, kMobile), 0);
  ASSERT_EQ(stop_logging(phone), 0);
  const std::string run = store_path(run_name(phone));
  ASSERT_EQ(phone.run({"harrowmossctl", "feedback", "--select", "anr", "/sdcard/bundle"}).status,
            0);
  for (const std::string& to : {run, std::string("/sdcard/bundle")}) {
    EXPECT_EQ(phone.read(to + "/anr/anr_1"), "t\n");
    EXPECT_EQ(phone.read(to + "/anr/heap/deep/dump"), "h\n");
    EXPECT_FALSE(phone.exists(to + "/anr/app/private"));
  }
  EXPECT_EQ(phone.read(run + "/heap/deep/dump"), "h\n");
  EXPECT_EQ(modes(), before);
  EXPECT_EQ(count_lines(phone, "cannot read /data/anr/app/private (0600, owner 10100:10100)"), 2);
  EXPECT_EQ(count_lines(phone, "cannot read"), 2);
}

TEST(Harvest, CollectsBluetoothLogsOfAPhoneThatSnoops) {
  Phone phone(quick_vendor());
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
