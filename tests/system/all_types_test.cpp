// All fourteen logger types at once: what is started in which order, what a stop switches off, and
// that nothing stays behind.
#include <gtest/gtest.h>

#include <algorithm>
#include <regex>

#include "phone/host/daemon.h"

namespace {

using Texts = std::vector<std::string>;

constexpr int kAllTypes = 0x7fff;
constexpr int kSystrace = 0x200;

// Every option that adds a worker is on; the blanks of the display id become '-'.
std::vector<std::string> everything_on(std::vector<std::string> more = {}) {
  more.insert(
      more.end(),
      {"--prop", "ro.build.display.id=QZ101A V1.0 user", "--prop", "persist.sys.qtrlog.enable=1",
       "--prop", "persist.sys.zklog.tzbsp.enable=on", "--prop", "persist.sys.zelka.release=1"});
  return more;
}

void ask_for_watch_fd(const Phone& phone) {
  phone.write("/sdcard/Android/data/cn.zelka.harrowmoss/files/.harrowmoss/MOBILE.cfg",
              "watch_fd\n");
}

// "key=value" of what the daemon itself has set, from the set with number `from` on. The run's name
// is written RUN.
Texts sets_of_daemon(const Phone& phone, size_t from) {
  const std::vector<PropertySet> all = phone.properties_log();
  Texts sets;
  for (size_t i = from; i < all.size(); i++) {
    if (all[i].pid != phone.daemon_pid()) continue;
    sets.push_back(
        std::regex_replace(all[i].key + "=" + all[i].value, std::regex("[0-9]+#[0-9_-]+"), "RUN"));
  }
  return sets;
}

// The commands that the daemon's main process gave to a shell, in order; one "SNAPSHOT" for the
// network commands. Workers that become a shell by themselves are left out: when they get to it is
// up to them.
Texts commands_of_daemon(const Phone& phone) {
  static const std::regex snapshot(
      "/system/bin/(date|ip|iptables|ip6tables|cat|dumpsys|netstat)( .*)?");
  static const std::pair<std::regex, const char*> names[] = {
      {std::regex("/data/misc/zelkalog/[0-9]+#[0-9_-]+"), "RUN"},
      {std::regex("/sdcard/zelkalog/[0-9]+#[0-9_-]+"), "STORED"},
      {std::regex("message-[0-9_-]+\\.txt"), "message-NOW"},
      {std::regex("cnss_fw_logs_00[01]"), "cnss_fw_logs"},
  };
  Texts commands;
  for (const BenchCall& call : phone.calls_of("/system/bin/sh")) {
    if (call.ppid != phone.daemon_pid() || call.argv.size() != 3 || call.argv[0] != "sh") continue;
    std::string command = call.argv[2];
    if (command.compare(0, 7, "cat /d/") == 0) continue;
    if (std::regex_match(command, snapshot)) command = "SNAPSHOT";
    if (!commands.empty() && command == "SNAPSHOT" && commands.back() == command) continue;
    for (const auto& name : names) command = std::regex_replace(command, name.first, name.second);
    commands.push_back(command);
  }
  return commands;
}

// What ps shows of the daemon's own children, in the order of their start. Those that come and go
// on their own time are left out.
Texts children_in_order(const Phone& phone) {
  std::vector<PhoneProcess> children;
  for (PhoneProcess& process : phone.processes()) {
    if (process.ppid == phone.daemon_pid() && !process.cmdline.empty())
      children.push_back(std::move(process));
  }
  std::sort(children.begin(), children.end(),
            [](const PhoneProcess& a, const PhoneProcess& b) { return a.pid < b.pid; });
  Texts names;
  for (const PhoneProcess& child : children) {
    const bool executed = child.comm == "logcat" || child.comm == "mksh" || child.comm == "sh";
    const std::string name = executed ? child.cmdline[0] : child.comm;
    if (name != "harrowmossd:SLC" && name != ":debug-systrace") names.push_back(name);
  }
  return names;
}

// Nothing runs but what ran before the start: no worker, no group, no script's background process.
bool only_the_phone_is_left(const Phone& phone) {
  Texts names;
  for (const PhoneProcess& process : phone.processes()) names.push_back(process.comm);
  std::sort(names.begin(), names.end());
  return names == Texts{"bench_systrace", "bench_vendor", "cat", "harrowmossd", "init"};
}

TEST(AllTypes, StartInStoredOrder) {
  Phone phone(everything_on());
  ASSERT_TRUE(settled(phone));
  ask_for_watch_fd(phone);
  phone.clear_calls();
  const size_t before = phone.properties_log().size();
  ASSERT_EQ(start_logging(phone, kAllTypes), 0);

  const std::string app = "/sdcard/Android/data/cn.zelka.harrowmoss/files/.harrowmoss/.DIAG.cfg";
  EXPECT_EQ(sets_of_daemon(phone, before),
            (Texts{"persist.sys.zklog.type=32767",
                   "persist.sys.zklog.enable=on",
                   "persist.bluetooth.btsnoopenable=true",
                   "persist.sys.zklog.dir_sequence=1",
                   "sys.harrowmossd.log_store_path=/sdcard/zelkalog/RUN",
                   "sys.harrowmossd.vendor_log_root_path=/data/vendor/zelkalog/common/RUN",
                   "persist.odm.zklog.qmimsg.enable=0",
                   "persist.sys.harrowmossd.mdlog_counts=25",
                   "sys.harrowmossd.diag_mdlog_path=/data/vendor/zelkalog/common/RUN/modem",
                   "sys.harrowmossd.diag_mdlog_cfg=/data/vendor/zelkalog/.DIAG.cfg",
                   "sys.harrowmossd.diag_mdlog_src_cfg=" + app,
                   "sys.zelka.diag_mdlog_over_qdss_state=1",
                   "persist.service.powersave.logs=1",
                   "persist.sys.ssr.restart_level=1",
                   "persist.sys.ap.restart_level=1",
                   "persist.sys.zelka_pwrkey_dump=1",
                   "sys.zelka.wifi.log=enable",
                   "persist.debug.trace=1",
                   "persist.sys.systrace.enable=1",
                   "persist.radio.start_ind=on",
                   "persist.sys.memory.debug.enable=1",
                   "sys.zelka.harrowmossd.sensorlog_state=1",
                   "persist.sys.dumpsys.enable=1",
                   "sys.zelka.fp.dump=on",
                   "sys.zelka.modemdump=on"}));
  EXPECT_EQ(commands_of_daemon(phone),
            (Texts{"/system/bin/logcat -p -g >> RUN/mobile/logcat_control_message-NOW",
                   "/system/bin/logcat -S >> RUN/mobile/logcat_control_message-NOW",
                   "cp " + app + " /data/vendor/zelkalog/.DIAG.cfg", "SNAPSHOT", "dumpsys power",
                   "dumpsys alarm", "/system/bin/sh /system/etc/power_logs_start.sh RUN RUN/power",
                   "echo 1 > /sys/class/light/light/debug"}));
  const Texts expected = {
      "harrowmossd:debug-main-vesk",
      "harrowmossd:debug-events-vesk",
      "harrowmossd:debug-system-vesk",
      "harrowmossd:debug-radio-vesk",
      "harrowmossd:debug-crash-vesk",
      "harrowmossd:debug-kernel-vesk",
      "debug/vesk",
      "sh",  // descriptor watcher, router log
      "mossd:debug-net",
      "wmossd:debug-fg",
      "/system/bin/sh",  // what the power script left running
      "harrowmossd-fp",
      "harrowmossd-fp",
      "ssd:debug-touch",
      ":debug-MPSSDump",
      "harrowmossd-lsm",
  };
  EXPECT_TRUE(eventually([&] { return children_in_order(phone) == expected; }))
      << testing::PrintToString(children_in_order(phone));
  EXPECT_TRUE(eventually([&] { return phone.read("/dev/bench/systrace.log") == "00000000\n"; }));
}

TEST(AllTypes, StopSwitchesOffEachOfThem) {
  Phone phone(everything_on());
  ASSERT_TRUE(settled(phone));
  ask_for_watch_fd(phone);
  ASSERT_EQ(start_logging(phone, kAllTypes), 0);
  phone.clear_calls();
  const size_t before = phone.properties_log().size();
  ASSERT_EQ(stop_logging(phone), 0);
  // It went on when the vendor had answered, not when the 15 s for that were over.
  for (const LogLine& line : lines_with(daemon_log(phone), "wait prop "))
    EXPECT_EQ(line.text.find("timeout"), std::string::npos) << line;

  EXPECT_EQ(sets_of_daemon(phone, before),
            (Texts{"persist.sys.zklog.enable=off", "persist.sys.qtrlog.enable=0",
                   "sys.zelka.wifi.log=disable", "sys.zelka.diag_mdlog_over_qdss_state=0",
                   "sys.zelka.harrowmossd.action.mv_vendor_common_logs=1",
                   "sys.zelka.harrowmossd.sensorlog_state=0", "persist.service.powersave.logs=0",
                   "log.wl.capture.ssrdump=1", "sys.zelka.modemdump=off",
                   "persist.sys.ssr.restart_level=3", "persist.sys.ap.restart_level=0",
                   "persist.sys.zelka_pwrkey_dump=0", "persist.sys.systrace.enable=0",
                   "persist.debug.trace=0", "persist.sys.memory.debug.enable=0",
                   "persist.sys.dumpsys.enable=0", "persist.radio.start_ind=off",
                   "persist.bluetooth.btsnoopenable=false", "sys.zelka.fp.dump=off"}));
  const std::string give = " ; chmod -R 777 ";
  EXPECT_EQ(
      commands_of_daemon(phone),
      (Texts{"echo 0 > /sys/class/light/light/debug",
             "/system/bin/sh /system/etc/power_logs_stop.sh RUN RUN/power",
             "cp -a /data/anr RUN" + give + "RUN", "cp -a /data/anr/heap RUN" + give + "RUN",
             "cp -a /data/tombstones RUN" + give + "RUN",
             "mv  /data/local/traces/* /sdcard/zelkalog/traces" + give + "/sdcard/zelkalog/traces",
             "rm -rf /data/anr/systrace/*", "SNAPSHOT",
             "echo 0x0 > /sys/module/ipc_router_core/parameters/debug_mask",
             "/system/bin/logcat -p -g >> RUN/mobile/logcat_control_message-NOW",
             "/system/bin/logcat -S >> RUN/mobile/logcat_control_message-NOW",
             "mv  /data/misc/zelkalog/* /sdcard/zelkalog/" + give + "/sdcard/zelkalog/",
             "mv  STORED/cnss_fw_logs.txt STORED/wlan_logs" + give + "STORED/wlan_logs",
             "mv  STORED/cnss_fw_logs.txt STORED/wlan_logs" + give + "STORED/wlan_logs",
             "cp -a /data/misc/zelkalog/.logger/ /sdcard/zelkalog/; chmod -R 777 "
             "/sdcard/zelkalog/"}));
  EXPECT_TRUE(eventually([&] { return only_the_phone_is_left(phone); }));
  EXPECT_TRUE(
      eventually([&] { return phone.read("/dev/bench/systrace.log") == "00000000\n00000002\n"; }));
  for (const char* file : {"/sys/zelka_power_debug/enable", "/sys/class/light/light/debug"})
    EXPECT_EQ(phone.read(file)[0], '0') << file;
  // Every worker went when it was told to; none had to be killed behind its bound.
  EXPECT_EQ(overdue_kills(phone), Texts{});
}

TEST(AllTypes, EachLeavesItsLogsInTheStore) {
  Phone phone(everything_on());
  ASSERT_TRUE(settled(phone));
  ask_for_watch_fd(phone);
  ASSERT_EQ(start_logging(phone, kAllTypes), 0);
  const std::string run = run_name(phone), work = working_path(run);
  phone.append("/d/tzdbg/qsee_log", "secure world\n");
  phone.append("/d/tzdbg/log", "trust zone\n");
  phone.append("/d/ipc_logging/qrtr_0/log_cont", "router\n");
  EXPECT_TRUE(eventually([&] {
    return !phone.read(work + "/fingerprint/qsee_log.txt").empty() &&
           !phone.read(work + "/fingerprint/tzbsp.txt").empty() &&
           !phone.read(work + "/mobile/fd/fd_log.txt").empty() &&
           !phone.read(work + "/fg/fg_log.txt").empty() &&
           !phone.read(work + "/power/power_log.txt").empty() &&
           !phone.read(work + "/net/QZ101A-V1.0-user-netlog.pcap").empty() &&
           !phone.read("/data/misc/zelkalog/qrtr_last.txt").empty() &&
           phone.exists("/data/vendor/zelkalog/common/" + run + "/modem/diag_log_0000.qmdl");
  }));
  ASSERT_EQ(stop_logging(phone), 0);
  const Texts stored = tree(phone, store_path(run));
  const bool reports = cut_reports(phone, "copy_system_propertie").empty();
  for (const char* path : {"anr/",
                           "fg/fg_log.txt",
                           "fingerprint/qsee_log.txt",
                           "fingerprint/tzbsp.txt",
                           "mobile/QZ201A-V1.02-main.txt",
                           "mobile/QZ201A-V1.02-kernel.txt",
                           "mobile/fd/fd_log.txt",
                           "modem/diag_log_0000.qmdl",
                           "net/QZ101A-V1.0-user-netlog.pcap",
                           "net/iptables-start.txt",
                           "net/iptables-stop.txt",
                           "others.prop",
                           "others_stop.prop",
                           "power/batterystats.txt",
                           "power/power_log.txt",
                           "system.prop",
                           "system_stop.prop",
                           "tombstones/",
                           "touch/",
                           "wlan_logs/cnss_fw_logs_000.txt",
                           "wlan_logs/cnss_fw_logs_001.txt"})
    EXPECT_TRUE(std::binary_search(stored.begin(), stored.end(), path) ||
                (!reports && std::string(path).find(".prop") != std::string::npos))
        << path;
  EXPECT_EQ(phone.read("/sdcard/zelkalog/qrtr_last.txt"), "router\n");
  EXPECT_EQ(phone.list("/data/misc/zelkalog"), Texts{".logger"});
  EXPECT_EQ(phone.list("/data/vendor/zelkalog/common/" + run), Texts{});
}

// The stop finds workers that are only just being started.
TEST(AllTypes, NothingIsLeftWhenTheStopFollowsAtOnce) {
  Phone phone(everything_on());
  ASSERT_TRUE(settled(phone));
  ask_for_watch_fd(phone);
  for (int cycle = 1; cycle <= 3; cycle++) {
    phone.setprop("persist.sys.qtrlog.enable", "1");  // each stop switches it off
    Client client(phone);
    constexpr int kLimitMs = 60000;
    ASSERT_TRUE(client.send(request(2, 1, little_endian(kAllTypes, 4)) + request(3, 2)));
    ASSERT_EQ(client.reply(kLimitMs).size(), 20u) << cycle;
    ASSERT_EQ(client.reply(kLimitMs).size(), 20u) << cycle;
    EXPECT_TRUE(eventually([&] { return only_the_phone_is_left(phone); })) << cycle;
    EXPECT_EQ(phone.getprop("persist.sys.zklog.dir_sequence"), std::to_string(cycle));
  }
}

TEST(AllTypes, OlderReleasesHaveTheTraceServiceElsewhere) {
  const std::pair<std::string, std::string> rows[] = {{"27", "on"}, {"28", "off"}};
  for (const auto& [sdk, legacy] : rows) {
    Phone phone(
        {"--prop", "ro.build.version.sdk=" + sdk, "--prop", "bench.systrace.legacy=" + legacy});
    ASSERT_TRUE(settled(phone));
    ASSERT_EQ(start_logging(phone, kSystrace), 0);
    EXPECT_TRUE(eventually([&] { return phone.read("/dev/bench/systrace.log") == "00000000\n"; }));
    ASSERT_EQ(stop_logging(phone), 0);
    EXPECT_TRUE(eventually([&] {
      return phone.read("/dev/bench/systrace.log") == "00000000\n00000002\n";
    })) << sdk;
  }
}

}  // namespace
