// The phone's vendor side answers as the daemon expects, and can be told not to.
#include <gtest/gtest.h>

#include "phone/host/phone.h"

namespace {

constexpr char kCommon[] = "sys.zelka.harrowmossd.action.mv_vendor_common_logs";
constexpr char kCommonDone[] = "sys.zelka.harrowmossd.action.mv_vendor_common_logs.done";
constexpr char kWifiDone[] = "sys.zelka.harrowmossd.action.mv_vendor_wifi_logs.done";
constexpr char kMinidump[] = "sys.zelka.harrowmossd.action.mv_minidump_logs";
constexpr char kMinidumpDone[] = "sys.zelka.harrowmossd.action.mv_minidump_logs_done";
constexpr char kStorePath[] = "sys.harrowmossd.log_store_path";
constexpr char kStore[] = "/sdcard/zelkalog/1#run";

class BenchVendor : public ::testing::Test {
 protected:
  // Without the daemon no service is started by itself.
  void start(Phone* phone) {
    ASSERT_TRUE(phone->ok());
    phone->setprop(kStorePath, kStore);
    phone->setprop("ctl.start", "bench_vendor");
    // It reads the log of sets from its end on: it must be there before it is asked.
    ASSERT_TRUE(eventually([&] {
      const std::vector<PhoneProcess> found = phone->named("bench_vendor");
      return !found.empty() && found[0].state == 'S';
    }));
  }
  // Requests are served in order: what was set before is seen by then.
  static void await_an_answer(Phone* phone) {
    const size_t before = phone->values_of(kWifiDone).size();
    phone->setprop("sys.zelka.wifi.log", "disable");
    ASSERT_TRUE(eventually([&] { return phone->values_of(kWifiDone).size() == before + 2; }));
  }
};

TEST_F(BenchVendor, ServesEveryRequestAgain) {
  Phone phone({"--no-daemon", "--prop", "bench.vendor.common_delay_ms=0"});
  start(&phone);
  for (const char* file : {"modem/a.qmdl", "b.txt"}) {
    phone.write(std::string("/data/vendor/zelkalog/common/1#run/") + file, "vendor");
    phone.setprop(kCommon, "1");  // the second time it is "1" already
    EXPECT_TRUE(
        eventually([&] { return phone.read(std::string(kStore) + "/" + file) == "vendor"; }));
    EXPECT_TRUE(eventually([&] { return phone.getprop(kCommonDone) == "1"; }));
  }
  EXPECT_EQ(phone.values_of(kCommonDone), (std::vector<std::string>{"0", "1", "0", "1"}));
  EXPECT_TRUE(phone.list("/data/vendor/zelkalog/common/1#run").empty());

  phone.setprop("sys.zelka.wifi.log", "enable");
  phone.setprop("sys.zelka.wifi.log", "disable");
  EXPECT_TRUE(eventually([&] { return phone.getprop(kWifiDone) == "1"; }));
  EXPECT_TRUE(phone.exists(std::string(kStore) + "/cnss_fw_logs_000.txt"));

  phone.setprop("sys.harrowmossd.minidump.path", "/sdcard/zelkalog/minidump");
  phone.setprop(kMinidump, "1");
  EXPECT_TRUE(eventually([&] { return phone.getprop(kMinidumpDone) == "1"; }));
  EXPECT_EQ(phone.list("/sdcard/zelkalog/minidump").size(), 1u);
}

TEST_F(BenchVendor, TheModemLoggerWritesWhileItIsOn) {
  Phone phone({"--no-daemon"});
  start(&phone);
  for (const char* state : {"sys.zelka.diag_mdlog_over_qdss_state", "sys.zelka.diag_mdlog_state"}) {
    const std::string directory = std::string("/data/vendor/") + state;
    const std::string file = directory + "/diag_log_0000.qmdl";
    phone.write(directory + "/.made", "");
    phone.setprop("sys.harrowmossd.diag_mdlog_path", directory);
    phone.setprop(state, "1");
    EXPECT_TRUE(eventually([&] { return phone.read(file).size() >= 3 * 4096; }));
    phone.setprop(state, "0");
    await_an_answer(&phone);
    const size_t size = phone.read(file).size();
    await_an_answer(&phone);  // which takes longer than a step of the logger
    EXPECT_EQ(phone.read(file).size(), size);
  }
}

TEST_F(BenchVendor, CanBeToldNotToAnswerOrNotToRun) {
  Phone phone({"--no-daemon", "--prop", "bench.vendor.common_delay_ms=never", "--prop",
               "bench.vendor.wifi_delay_ms=0"});
  start(&phone);
  phone.setprop(kCommon, "1");
  phone.setprop("sys.zelka.wifi.log", "disable");
  EXPECT_TRUE(eventually([&] { return phone.getprop(kWifiDone) == "1"; }));
  EXPECT_EQ(phone.values_of(kCommonDone), std::vector<std::string>{"0"});
  phone.setprop("bench.vendor", "off");
  EXPECT_TRUE(eventually([&] { return phone.named("bench_vendor").empty(); }));
}

}  // namespace
