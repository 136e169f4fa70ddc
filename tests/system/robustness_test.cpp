// Bad input: whatever a client sends, a property holds or a phone lacks, the daemon goes on.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <memory>
#include <random>

#include "phone/host/daemon.h"

namespace {

using Words = std::vector<std::string>;

// Logger types with a worker, a script or a command each: mobile, net, power, fingerprint, touch.
constexpr int kManyTypes = 0x1 | 0x4 | 0x8 | 0x20 | 0x10;

// Options that put a file of ours over a program; without a mode to run it, or as a script.
class ProgramFile {
 public:
  ProgramFile(const std::string& text, mode_t mode) {
    close(mkstemp(path_));
    EXPECT_TRUE(write_file(path_, text, mode));
  }
  ~ProgramFile() { unlink(path_); }
  std::string over(const std::string& program) const { return std::string(path_) + "=" + program; }

 private:
  char path_[32] = "/tmp/program.XXXXXX";
};

TEST(Robustness, OutlivesEveryFrame) {
  constexpr int kFrames = 400;
  constexpr size_t kLongest = 341;  // a longer one may end the process on purpose
  // What a random frame asks for must not take long, nor ask for what is tested elsewhere.
  constexpr int kCodes[] = {0, 1, 4, 5, 7, 8, 9, 10, 11, 13, 14, 15, 16, 17, -1};
  const ProgramFile trap("#!/system/bin/mksh\necho \"$@\" >> /data/sprung\n", 0755);
  Phone phone(quick_vendor({"--file", trap.over("/system/bin/touch")}));
  const unsigned seed = std::random_device{}();
  std::mt19937 random(seed);
  Client client(phone);
  for (int i = 0; i < kFrames; i++) {
    const int code = kCodes[random() % std::size(kCodes)];
    std::string payload = little_endian(static_cast<uint32_t>(code), 4);
    payload.resize(1 + random() % kLongest);
    for (size_t k = 4; k < payload.size(); k++) payload[k] = static_cast<char>(random());
    ASSERT_TRUE(client.send(frame(payload))) << "seed " << seed << ", frame " << i;
    const std::string reply = client.reply();
    ASSERT_GE(reply.size(), 16u) << "seed " << seed << ", frame " << i << ": " << hex(payload);
  }
  const char* paths[] = {"",
                         "/",
                         "relative/path",
                         "/sdcard/..",
                         "/sdcard/../data",
                         "/sdcard/a;touch x",
                         "/sdcard/$(touch x)/b",
                         "/sdcard/`touch x`",
                         "/sdcard/a\nb",
                         "/sdcard/-rf/b",
                         "/sdcard"};
  for (const char* path : paths) {
    for (const int code : {6, 14, 15}) {
      const std::string text = string16(path);
      // Request 6 carries a mask first: one that collects nothing.
      const std::string arguments =
          code == 6 ? little_endian(0x100, 4) + text + little_endian(0, 4) : text;
      ASSERT_TRUE(client.send(request(code, 1, arguments)));
      ASSERT_GE(client.reply().size(), 16u) << code << " " << path;
    }
  }
  EXPECT_FALSE(phone.exists("/data/sprung")) << phone.read("/data/sprung");
}

// The network capture's script runs: whatever its command's words expand to has been run by then.
bool captures_network(const Phone& phone) {
  const std::vector<BenchCall> calls = phone.calls_of("/system/bin/sh");
  return std::any_of(calls.begin(), calls.end(), [](const BenchCall& call) {
    return call.argv.size() > 1 && call.argv[1] == "/system/etc/get_net_log.sh";
  });
}

TEST(Robustness, OutlivesEveryPropertyValue) {
  const struct {
    const char* key;
    std::string value;
  } rows[] = {
      {"persist.sys.zklog.dir_sequence", "abc"},
      {"persist.sys.zklog.dir_sequence", "2147483647"},
      {"persist.sys.zklog.dir_sequence", "-7"},
      {"persist.sys.zelka.harrowmossd.log_file_count", "-2147483648"},
      {"persist.sys.zelka.harrowmossd.log_file_count", "99999999999999999999"},
      {"persist.sys.zelka.log.size", "much"},
      {"persist.sys.zelka.log.size", "-1"},
      {"ro.vendor.build.display.id", "a b;touch${IFS}x$(touch${IFS}y)`touch${IFS}z`'q'\"r\""},
      {"ro.build.display.id", "../../../../data/local/tmp/x;touch x #" + std::string(50, 'y')},
      {"ro.build.display.id", "$(touch${IFS}x)`touch${IFS}y`;touch${IFS}z"},
      {"ro.build.version.sdk", "unknown"},
      {"ro.product.model", std::string(91, 'm')},
      {"persist.sys.harrowmossd.mdlog_counts", "-3"},
      {"vendor.harrowmossd.minidump.status", "1;touch x"},
      {"persist.sys.timezone", "Nowhere/At all"},
      {"persist.sys.qtrlog.enable", "1"},
  };
  const ProgramFile trap("#!/system/bin/mksh\necho \"$@\" >> /data/sprung\n", 0755);
  std::vector<std::unique_ptr<Phone>> phones;
  for (const auto& row : rows) {
    phones.push_back(
        std::make_unique<Phone>(quick_vendor({"--file", trap.over("/system/bin/touch"), "--prop",
                                              std::string(row.key) + "=" + row.value}),
                                Phone::Until::kBooted));
  }
  for (size_t i = 0; i < std::size(rows); i++) {
    const std::string what = std::string(rows[i].key) + "=" + rows[i].value;
    Phone& phone = *phones[i];
    ASSERT_TRUE(phone.wait_until_ready()) << what;
    const pid_t pid = phone.daemon_pid();
    ASSERT_EQ(start_logging(phone, kManyTypes), 0) << what;
    EXPECT_TRUE(eventually([&] { return captures_network(phone); })) << what;
    const std::string run = run_name(phone);
    EXPECT_EQ(stop_logging(phone), 0) << what;
    EXPECT_TRUE(phone.exists(store_path(run) + "/mobile")) << what;
    EXPECT_TRUE(serves(phone)) << what;
    EXPECT_EQ(phone.daemon_pid(), pid) << what;
    EXPECT_FALSE(phone.exists("/data/sprung")) << what << phone.read("/data/sprung");
    phones[i].reset();
  }
}

// The store's path comes back from a property that others may set: it must stay below the store.
TEST(Robustness, FollowsNoStorePathOutOfTheStore) {
  Phone phone(quick_vendor());
  const Words logs = {"/data/anr/cnss_fw_logs_1", "/sdcard/Documents/cnss_fw_logs_1",
                      "/sdcard/cnss_fw_logs_1"};
  for (const std::string& log : logs) phone.write(log, "");
  for (const char* path : {"/data/anr", "/sdcard/zelkalog/../Documents", "/sdcard", "relative",
                           "/sdcard/zelkalog/1#x;touch x"}) {
    ASSERT_EQ(start_logging(phone, kWifi), 0);
    phone.setprop("sys.harrowmossd.log_store_path", path);
    ASSERT_EQ(stop_logging(phone), 0);
    for (const std::string& log : logs) EXPECT_TRUE(phone.exists(log)) << path;
    EXPECT_TRUE(serves(phone)) << path;
  }
}

TEST(Robustness, OutlivesEveryMissingTool) {
  const char* programs[] = {
      "/system/bin/logcat",
      "/system/bin/sh",
      "/system/bin/cp",
      "/system/bin/mv",
      "/system/bin/chmod",
      "/system/bin/getprop",
      "/system/bin/dumpsys",
      "/system/bin/ip",
      "/system/bin/rm",
      "/system/etc/get_net_log.sh",
      "/system/etc/power_logs_start.sh",
  };
  const ProgramFile nothing("no program\n", 0644);
  std::vector<std::unique_ptr<Phone>> phones;
  for (const char* program : programs) {
    phones.push_back(std::make_unique<Phone>(quick_vendor({"--file", nothing.over(program)}),
                                             Phone::Until::kBooted));
  }
  for (size_t i = 0; i < std::size(programs); i++) {
    const Phone& phone = *phones[i];
    ASSERT_TRUE(phone.wait_until_ready()) << programs[i];
    const pid_t pid = phone.daemon_pid();
    for (int round = 0; round < 2; round++) {
      ASSERT_EQ(start_logging(phone, kManyTypes), 0) << programs[i];
      EXPECT_EQ(stop_logging(phone), 0) << programs[i];
    }
    EXPECT_TRUE(serves(phone)) << programs[i];
    EXPECT_EQ(phone.daemon_pid(), pid) << programs[i];
    EXPECT_TRUE(eventually_childless(phone)) << programs[i];
    phones[i].reset();
  }
}

}  // namespace
