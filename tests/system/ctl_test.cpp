// harrowmossctl in a phone: commands that ask the daemon only for its version.
#include "tests/system/ctl.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <regex>
#include <set>

namespace fs = std::filesystem;

namespace {

std::string sdcard_run(const Phone& phone) {
  return phone.getprop("sys.harrowmossd.log_store_path");
}

// Writes a line into each buffer and waits until they are captured.
void fill_buffers(const Phone& phone) {
  for (const char* buffer : {"main", "events", "system", "kernel"}) {
    phone.run({"log", "-b", buffer, "-t", "CtlTest", "a line"});
  }
}

// The ids that doctor reports, in order.
std::vector<std::string> findings(const RunResult& doctor) {
  std::vector<std::string> ids;
  const std::regex pattern("\"id\":\"([^\"]*)\"");
  for (std::sregex_iterator it(doctor.out.begin(), doctor.out.end(), pattern), end; it != end; ++it)
    ids.push_back((*it)[1]);
  EXPECT_EQ(doctor.status, ids.empty() ? 0 : 1) << doctor.out << doctor.err;
  return ids;
}

using Ids = std::vector<std::string>;

TEST(CtlSystem, StatusShowsEveryWorkerOfAllTypes) {
  Phone phone;
  ASSERT_EQ(ctl(phone, {"start", "all"}).status, 0);
  std::string shown;
  // Polls: workers get name and program only after the start is answered.
  EXPECT_TRUE(eventually([&] {
    shown = ctl(phone, {"status"}).out;
    std::set<std::string> types;
    const std::regex row("\n +[0-9]+ +[0-9]+  ([^ ]+( log| monitor)?) ");
    for (std::sregex_iterator it(shown.begin(), shown.end(), row), end; it != end; ++it)
      types.insert((*it)[1]);
    const auto is_shown = [&](const char* type) { return types.count(type) == 1; };
    constexpr const char* kShown[] = {"mobile", "net",      "power",   "fingerprint",
                                      "touch",  "MPSSDump", "self log"};
    return std::regex_search(shown, std::regex("size monitor: +pid [0-9]")) && !is_shown("?") &&
           std::all_of(std::begin(kShown), std::end(kShown), is_shown);
  })) << shown;
}

TEST(CtlSystem, DoctorFindsFaultsWhileLoggingRuns) {
  Phone phone;
  EXPECT_EQ(findings(ctl(phone, {"doctor", "--json"})), Ids{"switch"});
  ASSERT_EQ(ctl(phone, {"start", "mobile"}).status, 0);
  ASSERT_TRUE(all_logcats_run(phone));
  const PhoneProcess monitor = running_monitor(phone);
  const auto doctor = [&](const char* timeout = "60") {
    return findings(ctl(phone, {"doctor", "--json", "--timeout", timeout}));
  };
  EXPECT_EQ(doctor(), Ids{});

  const struct {
    const char *key, *value, *mended;
    Ids found;
  } rows[] = {
      {"vold.mounted", "0", "1", {"storage"}},
      {"persist.sys.logger.enable", "off", "on", {"self-log"}},
      {"persist.sys.zklog.type", "0x1", "1", {"mask-text", "mask"}},
      {"persist.sys.zklog.enable", "once", "on", {"odd-switch"}},
  };
  for (const auto& row : rows) {
    phone.setprop(row.key, row.value);
    EXPECT_EQ(doctor(), row.found) << row.key << "=" << row.value;
    phone.setprop(row.key, row.mended);
  }
  // Run in the phone: a client in another network namespace is not listed.
  const BackgroundCommand waiting = phone.spawn({"nc", "-U", "/dev/socket/harrowmossd"});
  EXPECT_TRUE(eventually([&] { return doctor("0.5") == Ids{"held"}; }));
  ASSERT_TRUE(phone.signal(phone.daemon_pid(), SIGSTOP));
  for (const PhoneProcess& client : phone.named("nc")) phone.signal(client.pid, SIGKILL);
  EXPECT_TRUE(eventually([&] { return doctor("0.5") == Ids{"not-answering"}; }));
  ASSERT_TRUE(phone.signal(phone.daemon_pid(), SIGCONT));
  const fs::path run =
      phone.inside("/data/misc/zelkalog/" + fs::path(sdcard_run(phone)).filename().string());
  fs::rename(run, run.string() + "-away");
  EXPECT_EQ(doctor(), Ids{"lost-run"});
  fs::rename(run.string() + "-away", run);
  phone.write("/data/misc/zelkalog/77#01-01_00-00-00/x", "");
  EXPECT_EQ(doctor(), Ids{"left-behind"});
  fs::remove_all(phone.inside("/data/misc/zelkalog/77#01-01_00-00-00"));
  EXPECT_EQ(doctor(), Ids{});

  // A monitor that ends by itself, as at a stop, is not restarted by the daemon.
  ASSERT_TRUE(phone.signal(monitor.pid, SIGUSR1));
  ASSERT_TRUE(eventually([&] { return phone.named("harrowmossd-lsm").empty(); }));
  EXPECT_EQ(doctor(), Ids{"no-monitor"});
  // Nor is a logcat that was killed.
  for (const PhoneProcess& logcat : debug_logcats(phone)) phone.signal(logcat.pid, SIGKILL);
  ASSERT_TRUE(eventually([&] { return phone.named("logcat").size() <= 1; }));
  EXPECT_EQ(doctor(), (Ids{"no-logcat", "no-monitor"}));
  fs::remove(phone.inside("/dev/socket/harrowmossd"));
  EXPECT_EQ(doctor(), (Ids{"not-answering", "no-logcat", "no-monitor"}));
  EXPECT_EQ(phone.shell("mount -t tmpfs none /system/bin").status, 0);
  phone.write("/system/bin/sh", "");  // not executable
  const RunResult lacking = ctl(phone, {"doctor", "--json"});
  EXPECT_EQ(findings(lacking), (Ids{"not-answering", "missing-files", "no-logcat", "no-monitor"}));
  EXPECT_TRUE(contains(lacking.out, "/system/bin/sh (for everything)")) << lacking.out;
}

TEST(CtlSystem, CheckComparesARealRunWithItsMask) {
  Phone phone;
  ASSERT_EQ(ctl(phone, {"start", "mobile,net,power"}).status, 0);
  ASSERT_TRUE(all_logcats_run(phone));
  fill_buffers(phone);
  ASSERT_TRUE(eventually([&] {  // the scripts write once a second
    return phone.shell("cat /data/misc/zelkalog/1#*/fg/* | grep -q .").status == 0;
  }));
  EXPECT_EQ(ctl(phone, {"check", "1"}).status, 0) << ctl(phone, {"check", "1"}).out;
  ASSERT_EQ(ctl(phone, {"stop"}).status, 0);
  const RunResult whole = ctl(phone, {"check", "1"});
  EXPECT_EQ(whole.status, 0) << whole.out;
  EXPECT_TRUE(contains(whole.out, ", complete, mobile,net,power\nas promised (")) << whole.out;

  for (const std::string& name : phone.list(sdcard_run(phone) + "/mobile")) {
    if (contains(name, "-main.txt")) phone.write(sdcard_run(phone) + "/mobile/" + name, "");
  }
  const RunResult broken = ctl(phone, {"check", "1"});
  EXPECT_EQ(broken.status, 1);
  EXPECT_TRUE(contains(broken.out, "empty    mobile       mobile/")) << broken.out;
}

TEST(CtlSystem, EstimateBoundsTheBundleAndSendsNothing) {
  Phone phone;
  phone.run({"log", "-n", "3000", "-t", "CtlTest", std::string(200, 'x')});
  phone.write("/data/tombstones/tombstone_00", std::string(300000, 't'));
  phone.write("/data/anr/anr_1", std::string(70000, 'a'));
  const std::string list = "general,tombstone,anr";
  const std::string log = "/data/misc/zelkalog/.logger/harrowmossd.txt";
  ASSERT_TRUE(eventually([&] { return phone.exists(log); }));
  const std::string before = phone.read(log);
  const RunResult estimate =
      ctl(phone, {"feedback", "--estimate", "--json", "--select", list, "/sdcard/report"});
  EXPECT_EQ(estimate.status, 0) << estimate.err;
  EXPECT_FALSE(contains(phone.read(log).substr(before.size()), "new connection"));
  EXPECT_FALSE(phone.exists("/sdcard/report"));
  std::smatch match;
  ASSERT_TRUE(std::regex_search(estimate.out, match, std::regex("\"wanted\":([0-9]+)")));
  const long wanted = std::stol(match[1]);

  ASSERT_EQ(ctl(phone, {"feedback", "--select", list, "/sdcard/report"}).status, 0);
  const long used = std::stol(phone.run({"du", "-s", "-k", "/sdcard/report"}).out) * 1024;
  EXPECT_GE(wanted, used);
  EXPECT_LT(wanted, used + 128 * 1024);  // allowance for the report and new lines
}

}  // namespace
