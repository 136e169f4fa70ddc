// Bad input from clients and properties, and missing parts of a phone: the daemon continues.
#include <gtest/gtest.h>

#include <algorithm>

#include "phone/host/daemon.h"

namespace {

using Words = std::vector<std::string>;

// Logger types with a worker, script or command: mobile, net, power, fingerprint, touch.
constexpr int kManyTypes = 0x1 | 0x4 | 0x8 | 0x20 | 0x10;

// Sends `requests` to every phone before waiting for replies.
void answered_by_all(const std::vector<std::unique_ptr<Phone>>& phones, const Words& requests) {
  std::string bytes;
  for (const std::string& each : requests) bytes += each;
  std::vector<Client> clients;
  for (const auto& phone : phones) {
    clients.emplace_back(*phone);
    ASSERT_TRUE(clients.back().send(bytes));
  }
  for (size_t i = 0; i < clients.size() * requests.size(); i++)
    EXPECT_EQ(clients[i / requests.size()].reply(kSwitchMs).substr(16), std::string(4, '\0'))
        << "phone " << i / requests.size();
}

const std::string kStart = request(2, 1, little_endian(kManyTypes, 4)), kStop = request(3, 2);

// Waits until the network capture's script runs: the words of its command have been expanded by
// then.
bool captures_network(const Phone& phone) {
  const std::vector<BenchCall> calls = phone.calls_of("/system/bin/sh");
  return std::any_of(calls.begin(), calls.end(), [](const BenchCall& call) {
    return call.argv.size() > 1 && call.argv[1] == "/system/etc/get_net_log.sh";
  });
}

TEST(Robustness, SurvivesEveryPropertyValue) {
  const struct {
    const char* key;
    std::string value;
  } rows[] = {
      {"persist.sys.zklog.dir_sequence", "2147483647"},
      {"persist.sys.zelka.harrowmossd.log_file_count", "-2147483648"},
      {"persist.sys.zelka.log.size", "-1"},
      {"ro.vendor.build.display.id", "a b;touch${IFS}x$(touch${IFS}y)`touch${IFS}z`'q'\"r\""},
      {"ro.build.display.id", "../../../pwn;touch x #" + std::string(50, 'y')},
      {"ro.build.display.id", "$(touch${IFS}x)`touch${IFS}y`;touch${IFS}z"},
      {"ro.build.version.sdk", "unknown"},
      {"ro.product.model", std::string(91, 'm')},
      {"persist.sys.harrowmossd.mdlog_counts", "-3"},
      {"vendor.harrowmossd.minidump.status", "1;touch x"},
      {"persist.sys.timezone", "Nowhere/At all"},
      {"persist.sys.qtrlog.enable", "1"},
  };
  const Program trap("echo \"$@\" >> /data/sprung");
  std::vector<Words> options;
  for (const auto& row : rows)
    options.push_back(quick_vendor({"--file", trap.over("/system/bin/touch"), "--prop",
                                    std::string(row.key) + "=" + row.value}));
  const auto phones = boot_all(options);
  answered_by_all(phones, {kStart});
  for (size_t i = 0; i < std::size(rows); i++)
    EXPECT_TRUE(eventually([&] { return captures_network(*phones[i]); })) << rows[i].value;
  answered_by_all(phones, {kStop});
  for (size_t i = 0; i < std::size(rows); i++) {
    const Phone& phone = *phones[i];
    SCOPED_TRACE(std::string(rows[i].key) + "=" + rows[i].value);
    // The last run: with a negative quota the monitor may have begun another one.
    EXPECT_TRUE(phone.exists(store_path(run_name(phone)) + "/mobile"));
    EXPECT_TRUE(serves(phone));
    EXPECT_EQ(index_of(phone.init_log(), "ended harrowmossd"), phone.init_log().size());
    EXPECT_FALSE(phone.exists("/data/sprung")) << phone.read("/data/sprung");
    for (const std::string& name : phone.list("/data/misc"))
      EXPECT_NE(name.find("pwn"), 0u) << name;
  }
}

// The store's path is in a property that others may set. With any value the run continues, is
// stopped completely, and nothing outside the store changes.
TEST(Robustness, FindsItsRunWithAnyStorePath) {
  constexpr int kTypes = kMobile | kWifi | 0x8 | 0x20;  // power, fingerprint
  const Program trap("echo \"$@\" >> /data/sprung");
  Phone phone(quick_vendor({"--file", trap.over("/system/bin/touch"), "--prop",
                            "persist.sys.zelka.harrowmossd.bugreport_enable=1"}));
  const Words logs = {"/data/anr/cnss_fw_logs_1", "/sdcard/Documents/cnss_fw_logs_1",
                      "/sdcard/cnss_fw_logs_1"};
  for (const std::string& log : logs) phone.write(log, "");
  for (const char* path :
       {"/data/anr", "/sdcard/zelkalog/../Documents", "/sdcard/zelkalog/9#;cd data;touch x",
        "/sdcard/zelkalog/9#01-02_03-04-05"}) {
    ASSERT_EQ(start_logging(phone, kTypes), 0);
    ASSERT_TRUE(all_logcats_run(phone));
    const std::string run = run_name(phone);
    const pid_t main = logcat_of(phone, "main").pid;
    phone.setprop("sys.harrowmossd.log_store_path", path);
    ASSERT_TRUE(phone.signal(phone.daemon_pid(), SIGCHLD));
    EXPECT_EQ(current_run(phone), run) << path;
    EXPECT_TRUE(is_alive(phone, main)) << path;
    ASSERT_EQ(stop_logging(phone), 0);
    for (const std::string& log : logs) EXPECT_TRUE(phone.exists(log)) << path;
    for (const char* file : {"/mobile", "/power", "/bugreport/bugreport_stop.zip"})
      EXPECT_TRUE(phone.exists(store_path(run) + file)) << path << file;
    EXPECT_FALSE(phone.exists("/data/sprung")) << path << phone.read("/data/sprung");
  }
}

TEST(Robustness, SurvivesEveryMissingTool) {
  const char* programs[] = {
      "/system/bin/logcat", "/system/bin/sh",
      "/system/bin/cp",     "/system/bin/mv",
      "/system/bin/chmod",  "/system/bin/getprop",
      "/system/bin/rm",     "/system/etc/power_logs_start.sh",
  };
  const Program nothing("no program", 0644);
  std::vector<Words> options;
  for (const char* program : programs)
    options.push_back(quick_vendor({"--file", nothing.over(program)}));
  const auto phones = boot_all(options);
  answered_by_all(phones, {kStart, kStop, kStart, kStop});
  for (size_t i = 0; i < std::size(programs); i++) {
    SCOPED_TRACE(programs[i]);
    EXPECT_TRUE(serves(*phones[i]));
    EXPECT_EQ(index_of(phones[i]->init_log(), "ended harrowmossd"), phones[i]->init_log().size());
    EXPECT_TRUE(eventually_childless(*phones[i]));
  }
}

}  // namespace
