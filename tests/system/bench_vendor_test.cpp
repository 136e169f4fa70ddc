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
    phone->setprop(kStorePath, kStore);
    phone->setprop("ctl.start", "bench_vendor");
    // It reads the log of sets from its end on: it must be there before it is asked.
    ASSERT_TRUE(eventually([&] {
      const std::vector<PhoneProcess> found = phone->named("bench_vendor");
      return !found.empty() && found[0].state == 'S';
    }));
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

}  // namespace
