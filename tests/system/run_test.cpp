// A run of debug logging, from its start to the moved result and after.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <regex>
#include <set>

#include "model/log_buffers.h"
#include "phone/host/daemon.h"

namespace {

using Words = std::vector<std::string>;

constexpr int kAllTypes = 0x7fff, kCoreDump = 0x100;

// All options that add a worker; the blanks of the display id become '-'.
const Words kEverythingOn = {
    "--prop", "ro.build.display.id=QZ101A V1.0 user", "--prop", "persist.sys.qtrlog.enable=1",
    "--prop", "persist.sys.zklog.tzbsp.enable=on",    "--prop", "persist.sys.zelka.release=1"};

void ask_for_watch_fd(const Phone& phone) {
  phone.write("/sdcard/Android/data/cn.zelka.harrowmoss/files/.harrowmoss/MOBILE.cfg",
              "watch_fd\n");
}

// The commands that the daemon's main process ran in a shell, in order; one "SNAPSHOT" for the
// network commands. Without workers that execute a shell: their timing varies.
Words commands_of_daemon(const Phone& phone) {
  static const std::regex snapshot(
      "/system/bin/(date|ip|iptables|ip6tables|cat|dumpsys|netstat)( .*)?");
  static const std::pair<std::regex, const char*> names[] = {
      {std::regex("/data/misc/zelkalog/[0-9]+#[0-9_-]+"), "RUN"},
      {std::regex("/sdcard/zelkalog/[0-9]+#[0-9_-]+"), "STORED"},
      {std::regex("message-[0-9_-]+\\.txt"), "message-NOW"},
      {std::regex("cnss_fw_logs_00[01]"), "cnss_fw_logs"},
  };
  Words commands;
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

// The daemon's children in ps, in start order, without those that come and go.
Words children_in_order(const Phone& phone) {
  std::vector<PhoneProcess> children;
  for (PhoneProcess& process : phone.processes()) {
    if (process.ppid == phone.daemon_pid() && !process.cmdline.empty())
      children.push_back(std::move(process));
  }
  std::sort(children.begin(), children.end(),
            [](const PhoneProcess& a, const PhoneProcess& b) { return a.pid < b.pid; });
  Words names;
  for (const PhoneProcess& child : children) {
    const bool executed = child.comm == "logcat" || child.comm == "mksh" || child.comm == "sh";
    const std::string name = executed ? child.cmdline[0] : child.comm;
    if (name != "harrowmossd:SLC" && name != ":debug-systrace") names.push_back(name);
  }
  return names;
}

// The names of all running processes.
Words running(const Phone& phone) {
  Words names;
  for (const PhoneProcess& process : phone.processes()) names.push_back(process.comm);
  std::sort(names.begin(), names.end());
  return names;
}

// What a run of all types does at its start and stop, and leaves.
const std::string kApp = "/sdcard/Android/data/cn.zelka.harrowmoss/files/.harrowmoss/.DIAG.cfg";
const std::string kGive = " ; chmod -R 777 ";

const Words kStartSets = {"persist.sys.zklog.type=32767",
                          "persist.sys.zklog.enable=on",
                          "persist.bluetooth.btsnoopenable=true",
                          "persist.sys.zklog.dir_sequence=1",
                          "sys.harrowmossd.log_store_path=/sdcard/zelkalog/RUN",
                          "sys.harrowmossd.vendor_log_root_path=/data/vendor/zelkalog/common/RUN",
                          "persist.odm.zklog.qmimsg.enable=0",
                          "persist.sys.harrowmossd.mdlog_counts=25",
                          "sys.harrowmossd.diag_mdlog_path=/data/vendor/zelkalog/common/RUN/modem",
                          "sys.harrowmossd.diag_mdlog_cfg=/data/vendor/zelkalog/.DIAG.cfg",
                          "sys.harrowmossd.diag_mdlog_src_cfg=" + kApp,
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
                          "sys.zelka.modemdump=on"};

const Words kStartCommands = {"/system/bin/logcat -p -g >> RUN/mobile/logcat_control_message-NOW",
                              "/system/bin/logcat -S >> RUN/mobile/logcat_control_message-NOW",
                              "cp " + kApp + " /data/vendor/zelkalog/.DIAG.cfg",
                              "SNAPSHOT",
                              "dumpsys power",
                              "dumpsys alarm",
                              "/system/bin/sh /system/etc/power_logs_start.sh RUN RUN/power",
                              "echo 1 > /sys/class/light/light/debug"};

// "sh": the descriptor watcher, then the router log; "/system/bin/sh": left by the power script.
const Words kChildren = split(
    "harrowmossd:debug-main-vesk harrowmossd:debug-events-vesk harrowmossd:debug-system-vesk "
    "harrowmossd:debug-radio-vesk harrowmossd:debug-crash-vesk harrowmossd:debug-kernel-vesk "
    "debug/vesk sh mossd:debug-net wmossd:debug-fg /system/bin/sh harrowmossd-fp "
    "harrowmossd-fp ssd:debug-touch :debug-MPSSDump harrowmossd-lsm",
    " ");

const Words kStopSets = {"persist.sys.zklog.enable=off",
                         "persist.sys.qtrlog.enable=0",
                         "sys.zelka.wifi.log=disable",
                         "sys.zelka.diag_mdlog_over_qdss_state=0",
                         "sys.zelka.harrowmossd.action.mv_vendor_common_logs=1",
                         "sys.zelka.harrowmossd.sensorlog_state=0",
                         "persist.service.powersave.logs=0",
                         "log.wl.capture.ssrdump=1",
                         "sys.zelka.modemdump=off",
                         "persist.sys.ssr.restart_level=3",
                         "persist.sys.ap.restart_level=0",
                         "persist.sys.zelka_pwrkey_dump=0",
                         "persist.sys.systrace.enable=0",
                         "persist.debug.trace=0",
                         "persist.sys.memory.debug.enable=0",
                         "persist.sys.dumpsys.enable=0",
                         "persist.radio.start_ind=off",
                         "persist.bluetooth.btsnoopenable=false",
                         "sys.zelka.fp.dump=off"};

const Words kStopCommands = {
    "echo 0 > /sys/class/light/light/debug",
    "/system/bin/sh /system/etc/power_logs_stop.sh RUN RUN/power",
    "cp -a /data/anr RUN" + kGive + "RUN",
    "cp -a /data/anr/heap RUN" + kGive + "RUN",
    "cp -a /data/tombstones RUN" + kGive + "RUN",
    "mv  /data/local/traces/* /sdcard/zelkalog/traces" + kGive + "/sdcard/zelkalog/traces",
    "rm -rf /data/anr/systrace/*",
    "SNAPSHOT",
    "echo 0x0 > /sys/module/ipc_router_core/parameters/debug_mask",
    "/system/bin/logcat -p -g >> RUN/mobile/logcat_control_message-NOW",
    "/system/bin/logcat -S >> RUN/mobile/logcat_control_message-NOW",
    "mv  /data/misc/zelkalog/* /sdcard/zelkalog/" + kGive + "/sdcard/zelkalog/",
    "mv  STORED/cnss_fw_logs.txt STORED/wlan_logs" + kGive + "STORED/wlan_logs",
    "mv  STORED/cnss_fw_logs.txt STORED/wlan_logs" + kGive + "STORED/wlan_logs",
    "cp -a /data/misc/zelkalog/.logger/ /sdcard/zelkalog/; chmod -R 777 "
    "/sdcard/zelkalog/"};

const Words kStored = split(
    "anr/trace_00 fg/fg_log.txt fingerprint/qsee_log.txt fingerprint/tzbsp.txt "
    "mobile/QZ201A-V1.02-crash.txt mobile/QZ201A-V1.02-events.txt "
    "mobile/QZ201A-V1.02-kernel.txt mobile/QZ201A-V1.02-main.txt "
    "mobile/QZ201A-V1.02-radio.txt mobile/QZ201A-V1.02-system.txt mobile/fd/fd_log.txt "
    "modem/diag_log_0000.qmdl net/QZ101A-V1.0-user-netlog.pcap net/iptables-start.txt "
    "net/iptables-stop.txt others.prop others_stop.prop power/batterystats.txt "
    "power/power_log.txt system.prop system_stop.prop tombstones/tombstone_00 touch/ "
    "wlan_logs/cnss_fw_logs_000.txt wlan_logs/cnss_fw_logs_001.txt",
    " ");

// All fourteen types at once: the start order, what a stop switches off and leaves, and that no
// worker, group or background process of a script survives it.
TEST(Run, OfAllTypesFromItsStartToTheStore) {
  Phone phone(kEverythingOn);  // with the vendor's side, which adds logs
  ASSERT_TRUE(settled(phone));
  ask_for_watch_fd(phone);
  for (const char* file : {"/data/anr/trace_00", "/data/tombstones/tombstone_00"})
    phone.write(file, "crash\n");
  const Words before = running(phone);
  phone.clear_calls();
  const size_t start = phone.properties_log().size();
  ASSERT_EQ(start_logging(phone, kAllTypes), 0);

  EXPECT_EQ(sets_of_daemon(phone, start), kStartSets);
  EXPECT_EQ(commands_of_daemon(phone), kStartCommands);
  Words children;
  EXPECT_TRUE(eventually([&] { return (children = children_in_order(phone)) == kChildren; }))
      << testing::PrintToString(children);
  EXPECT_TRUE(eventually([&] { return phone.read("/dev/bench/systrace.log") == "00000000\n"; }));

  // Wait until all files are being written.
  const std::string run = run_name(phone), work = working_path(run);
  EXPECT_TRUE(std::regex_match(run, std::regex("1#\\d\\d-\\d\\d_\\d\\d-\\d\\d-\\d\\d"))) << run;
  EXPECT_EQ(from_hex(ask(phone, 9)).substr(4, run.size()), run);
  phone.append("/d/tzdbg/qsee_log", "secure world\n");
  phone.append("/d/tzdbg/log", "trust zone\n");
  phone.append("/d/ipc_logging/qrtr_0/log_cont", "router\n");
  for (const std::string& file :
       {work + "/fingerprint/qsee_log.txt", work + "/fingerprint/tzbsp.txt",
        work + "/mobile/fd/fd_log.txt", work + "/fg/fg_log.txt", work + "/power/power_log.txt",
        work + "/net/QZ101A-V1.0-user-netlog.pcap",
        std::string("/data/misc/zelkalog/qrtr_last.txt"),
        "/data/vendor/zelkalog/common/" + run + "/modem/diag_log_0000.qmdl"})
    EXPECT_TRUE(eventually([&] { return !phone.read(file).empty(); })) << file;
  ASSERT_TRUE(all_logcats_run(phone));

  phone.clear_calls();
  const size_t stop = phone.properties_log().size();
  ASSERT_EQ(stop_logging(phone), 0);
  // It continued after the vendor's answer, before the end of the 15 s.
  for (const LogLine& line : lines_with(daemon_log(phone), "wait prop "))
    EXPECT_EQ(line.text.find("timeout"), std::string::npos) << line;
  EXPECT_EQ(sets_of_daemon(phone, stop), kStopSets);
  EXPECT_EQ(commands_of_daemon(phone), kStopCommands);
  Words left;
  EXPECT_TRUE(eventually([&] { return (left = running(phone)) == before; }))
      << testing::PrintToString(left);
  EXPECT_TRUE(
      eventually([&] { return phone.read("/dev/bench/systrace.log") == "00000000\n00000002\n"; }));
  for (const char* file : {"/sys/zelka_power_debug/enable", "/sys/class/light/light/debug"})
    EXPECT_EQ(phone.read(file)[0], '0') << file;
  EXPECT_EQ(phone.read("/sys/module/ipc_router_core/parameters/debug_mask"), "0x0\n");
  // Every worker ended on SIGTERM; none had to be killed.
  EXPECT_EQ(overdue_kills(phone), Words{});

  const Words stored = tree(phone, store_path(run));
  for (const std::string& path : promised(phone, kStored))
    EXPECT_TRUE(std::binary_search(stored.begin(), stored.end(), path)) << path;
  EXPECT_EQ(phone.read("/sdcard/zelkalog/qrtr_last.txt"), "router\n");
  EXPECT_EQ(phone.list("/data/misc/zelkalog"), Words{".logger"});
  EXPECT_EQ(phone.list("/data/vendor/zelkalog/common/" + run), Words{});
  EXPECT_TRUE(phone.exists("/data/anr/trace_00"));  // copied, not moved
}

// Text that logcats had not written when they were ended is in the run, however much there was.
void expect_every_line(Phone& phone, int lines) {
  const std::string run = run_name(phone), count = std::to_string(lines);
  for (const std::string buffer : kLogBuffers)
    phone.shell("log -t mark -n " + count + " -b " + buffer + " 'a line of some length:'");
  ASSERT_EQ(stop_logging(phone), 0);
  for (const std::string buffer : kLogBuffers) {
    const std::string text =
        phone.read(store_path(run) + "/mobile/QZ201A-V1.02-" + buffer + ".txt");
    size_t at = 0;
    for (int line = 1; line <= lines && at != std::string::npos; line++)
      at = text.find("length: " + std::to_string(line) + "\n", at);
    EXPECT_NE(at, std::string::npos) << buffer << " of " << lines;
  }
}

TEST(Run, HasEveryLineThatWasLoggedBeforeTheStop) {
  for (const int lines : {200, 2000}) {
    Phone phone(quick_vendor());
    ASSERT_EQ(start_logging(phone, kMobile), 0);
    ASSERT_TRUE(all_logcats_run(phone));
    expect_every_line(phone, lines);
  }
}

// All types at once, where preallocation exceeds the space, which is no reason to delete runs from
// the store; with a trace that only the system user may read, and with files that shared storage
// cannot store.
TEST(Run, IsCapturedOnASmallPhone) {
  Phone phone(quick_vendor({"--data-size", "500m", "--prop", "bench.logcat.preallocate=1"}));
  const std::string old = "/sdcard/zelkalog/1#01-01_00-00-00/main.txt";
  phone.write(old, "of an old run\n");
  phone.setprop("persist.sys.zklog.dir_sequence", "1");
  phone.write("/data/anr/app/anr_1", "trace\n");
  phone.write("/data/tombstones/tombstone_00", "crash\n");
  phone.shell("chmod 0700 /data/anr/app; chown system:system /data/anr/app");
  ASSERT_EQ(start_logging(phone, kAllTypes), 0);
  ASSERT_TRUE(all_logcats_run(phone));
  ASSERT_TRUE(eventually([&] { return available(phone, "/data") < 128 << 20; }));
  // Each check of the monitor ends in one sleep.
  const auto sleeps = [&phone, monitor = running_monitor(phone).pid] {
    const std::string status = phone.read("/proc/" + std::to_string(monitor) + "/status");
    const std::string label = "\nvoluntary_ctxt_switches:";
    return atoi(status.c_str() + status.find(label) + label.size());
  };
  const int before = sleeps();
  EXPECT_TRUE(eventually([&] { return sleeps() >= before + 2; }));
  EXPECT_EQ(count_lines(phone, "storage extreme low, delete logs"), 0);

  const std::string run = run_name(phone);
  ASSERT_EQ(
      phone.shell("cd '" + working_path(run) + "'; ln -s main link; mkfifo mobile/pipe").status, 0);
  const std::string socket = phone.inside(working_path(run) + "/mobile/socket");
  ASSERT_EQ(mknod(socket.c_str(), S_IFSOCK | 0600, 0), 0);
  expect_every_line(phone, 20);
  EXPECT_EQ(phone.read(store_path(run) + "/anr/app/anr_1"), "trace\n");
  EXPECT_EQ(phone.read(store_path(run) + "/tombstones/tombstone_00"), "crash\n");
  EXPECT_EQ(phone.shell("stat -c '%a %U' /data/anr/app /data/anr/app/anr_1").out,
            "700 system\n600 system\n");
  EXPECT_EQ(phone.list("/data/misc/zelkalog"), Words{".logger"});
  std::string dropped = rest_of_line(phone, "dropped, because /sdcard/zelkalog cannot hold it: ");
  for (const std::string what : {"/link -> main", "/mobile/pipe (FIFO)", "/mobile/socket (socket)"})
    EXPECT_NE(dropped.find(run + what), std::string::npos) << dropped;
  EXPECT_EQ(phone.read(old), "of an old run\n");
  EXPECT_GT(available(phone, "/data"), 470 << 20);  // preallocated blocks are released

  ask(phone, 12);
  EXPECT_EQ(phone.list("/data/anr"), Words{});
}

TEST(Run, AnswersTheActiveMaskWithNothing) {
  Phone phone(quick_vendor());
  ASSERT_EQ(start_logging(phone, kMobile), 0);
  ASSERT_TRUE(all_logcats_run(phone));
  const size_t sets = phone.properties_log().size();
  const size_t lines = daemon_log(phone).size();
  const auto before = logcats(phone);
  Client client(phone);
  ASSERT_TRUE(client.send(request(2, 5, little_endian(kMobile, 4))));
  EXPECT_EQ(hex(client.reply()), "0c000000020000000500000000000000");
  EXPECT_EQ(phone.properties_log().size(), sets);
  const auto after = logcats(phone);
  ASSERT_EQ(after.size(), 6u);
  for (size_t i = 0; i < after.size(); i++) EXPECT_EQ(after[i].pid, before[i].pid);
  const Words log = main_thread_log(phone, lines);
  EXPECT_EQ(std::count(log.begin(), log.end(), "5 current logger is enabled! types=1, req types=1"),
            1);
  EXPECT_EQ(std::count(log.begin(), log.end(), "5 logger types no change, just return."), 1);
}

TEST(Run, StopsFirstForAnotherMask) {
  Phone phone(quick_vendor());
  ASSERT_TRUE(settled(phone));
  ASSERT_EQ(start_logging(phone, kMobile), 0);
  const std::string first = run_name(phone);
  const PhoneProcess monitor = running_monitor(phone);
  ASSERT_TRUE(all_logcats_run(phone));
  std::set<pid_t> old;
  for (const PhoneProcess& process : logcats(phone)) old.insert(process.pid);
  ASSERT_EQ(start_logging(phone, kMobile | kCoreDump), 0);
  const std::string second = run_name(phone);
  EXPECT_EQ(second.substr(0, 2), "2#");
  EXPECT_EQ(count_lines(phone, "request start logger with types changed, stop current first."), 1);
  EXPECT_TRUE(phone.exists(store_path(first) + "/mobile"));
  EXPECT_TRUE(phone.exists(working_path(second) + "/mobile"));
  EXPECT_FALSE(phone.exists(working_path(first)));
  EXPECT_EQ(phone.values_of("persist.sys.zklog.enable"), (Words{"on", "on"}));
  EXPECT_EQ(phone.values_of("persist.sys.zklog.type"), (Words{"1", "257"}));
  EXPECT_EQ(phone.values_of("persist.debug.trace"), (Words{"0", "1"}));
  EXPECT_EQ(size_monitor(phone).pid, monitor.pid);
  ASSERT_TRUE(all_logcats_run(phone));
  for (const PhoneProcess& process : logcats(phone)) EXPECT_EQ(old.count(process.pid), 0u);
  // Exactly one collector remains.
  EXPECT_TRUE(eventually([&] { return collectors(phone).size() == 1; }));
  EXPECT_EQ(stop_logging(phone), 0);
  EXPECT_TRUE(eventually_childless(phone));
}

TEST(Run, StopsWithNothingToStop) {
  Phone phone(quick_vendor());
  ASSERT_TRUE(settled(phone));
  phone.write("/data/anr/trace_00", "stack\n");
  phone.write("/data/misc/zelkalog/5#01-01_00-00-00/mobile/left.txt", "of an older run\n");
  ASSERT_EQ(stop_logging(phone), 0);
  EXPECT_TRUE(phone.exists("/sdcard/zelkalog/5#01-01_00-00-00/mobile/left.txt"));
  EXPECT_TRUE(phone.exists("/sdcard/zelkalog/.logger/harrowmossd.txt"));
  EXPECT_EQ(phone.read("/data/anr/trace_00"), "stack\n");
  EXPECT_EQ(phone.values_of("persist.debug.trace"), Words{"0"});
  EXPECT_EQ(phone.values_of("persist.sys.zklog.enable"), Words{"off"});
  EXPECT_TRUE(phone.values_of("persist.sys.zklog.dir_sequence").empty());
  EXPECT_TRUE(eventually_childless(phone));
  EXPECT_EQ(count_lines(phone, "receive signal"), 0);
}

}  // namespace
