// The processes of a run: what they inherit, what becomes of those that end, and that none is left.
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>

#include "phone/host/daemon.h"

namespace {

using Words = std::vector<std::string>;

constexpr const char* kSelfLog = "/data/misc/zelkalog/.logger";

TEST(Workers, AreGoneAfterEachOfTwentyRuns) {
  constexpr int kCycles = 20;
  Phone phone(quick_vendor());
  ASSERT_TRUE(settled(phone));
  const auto threads = [&phone] {
    return phone.list("/proc/" + std::to_string(phone.daemon_pid()) + "/task").size();
  };
  phone.write("/sdcard/Android/data/cn.zelka.harrowmoss/files/.harrowmoss/MOBILE.cfg",
              "watch_fd\n");
  const pid_t daemon = phone.daemon_pid();
  const size_t threads_before = threads(), processes_before = phone.processes().size();
  const Words before = descriptors(phone, daemon);
  for (int i = 1; i <= kCycles; i++) {
    phone.setprop("persist.sys.qtrlog.enable", "1");  // a reader that never ends by itself
    ASSERT_EQ(start_logging(phone, kMobile), 0) << i;
    EXPECT_TRUE(all_logcats_run(phone)) << i;
    ASSERT_EQ(stop_logging(phone), 0) << i;
    ASSERT_TRUE(eventually_childless(phone)) << i << ": " << children_of_daemon(phone)[0].comm;
    EXPECT_TRUE(eventually([&] { return descriptors(phone, daemon) == before; })) << i;
  }
  EXPECT_EQ(phone.daemon_pid(), daemon);
  EXPECT_EQ(phone.processes().size(), processes_before);
  EXPECT_LE(threads(), threads_before + 1);  // the router log's rotation looks every 10 s
  EXPECT_EQ(phone.list("/sdcard/zelkalog").size(), kCycles + 2u);  // .logger, qrtr_last.txt
  EXPECT_EQ(phone.list("/data/misc/zelkalog"), Words{".logger"});
  EXPECT_EQ(phone.getprop("persist.sys.zklog.dir_sequence"), std::to_string(kCycles));
  EXPECT_EQ(overdue_kills(phone), Words());
}

// Every kind of worker but those that only wait for a service: logcats, collector, router log,
// descriptor watcher, packet capture, power and fuel gauge, secure-world traces, watchdog.
constexpr int kManyWorkers = 0x1 | 0x4 | 0x8 | 0x20 | 0x10 | 0x400;

// What would make a tool deaf for its end, as bits of a signal set.
constexpr uint64_t kEndingSignals = 1 << (SIGTERM - 1) | 1 << (SIGPIPE - 1) | 1 << (SIGALRM - 1);

uint64_t signal_set(const Phone& phone, pid_t pid, const std::string& name) {
  const std::string status = phone.read("/proc/" + std::to_string(pid) + "/status");
  const size_t at = status.find(name);
  if (at == std::string::npos) return 0;  // it has ended meanwhile
  return strtoull(status.c_str() + at + name.size(), nullptr, 16);
}

// What a process below the daemon has inherited and must not have: a line each.
Words inherited_wrongly(const Phone& phone) {
  Words wrong;
  for (const PhoneProcess& worker : children_of_daemon(phone)) {
    const std::string who = std::to_string(worker.pid) + " " + worker.comm + ": ";
    const bool own_child = worker.ppid == phone.daemon_pid();
    for (const std::string& target : descriptors(phone, worker.pid)) {
      // A pipe between two of a script's tools is their own; the signal pipe is not.
      if (target.find("socket:") == 0 || (own_child && target.find("pipe:") == 0))
        wrong.push_back(who + target);
    }
    if ((signal_set(phone, worker.pid, "SigBlk:") & kEndingSignals) != 0)
      wrong.push_back(who + "blocked");
    if ((signal_set(phone, worker.pid, "SigIgn:") & kEndingSignals) != 0)
      wrong.push_back(who + "ignored");
  }
  return wrong;
}

TEST(Workers, InheritNoSocketAndNoSignalMask) {
  Phone phone(quick_vendor({"--prop", "persist.sys.qtrlog.enable=1"}));
  phone.write("/sdcard/Android/data/cn.zelka.harrowmoss/files/.harrowmoss/MOBILE.cfg",
              "watch_fd\n");
  Client client(phone);
  ASSERT_TRUE(client.send(request(2, 1, little_endian(kManyWorkers, 4))));
  EXPECT_EQ(hex(client.reply()), "1000000002000000010000000000000000000000");

  EXPECT_TRUE(eventually([&] { return children_of_daemon(phone).size() >= 16; }));
  // Not at once: a child that is just being forked still has everything.
  Words wrong;
  EXPECT_TRUE(eventually([&] { return (wrong = inherited_wrongly(phone)).empty(); }))
      << ::testing::PrintToString(wrong);
  int sockets = 0;
  for (const std::string& target : descriptors(phone, phone.daemon_pid()))
    sockets += target.find("socket:") == 0;
  EXPECT_EQ(sockets, 2);

  ASSERT_TRUE(client.send(request(3, 2)));
  EXPECT_EQ(hex(client.reply(60000)), "1000000003000000020000000000000000000000");
  EXPECT_TRUE(eventually_childless(phone));
  EXPECT_EQ(overdue_kills(phone), Words());
}

// Also without a monitor, whose end would have the main process look for leftovers once more; and
// when logging goes on with another mask.
TEST(Workers, TakeWhatTheyStartedWithThem) {
  Phone phone(quick_vendor({"--prop", "persist.sys.zelka.log.del=false"}));
  ASSERT_TRUE(settled(phone));
  for (const bool stop : {false, true}) {
    phone.setprop("persist.sys.qtrlog.enable", "1");
    ASSERT_EQ(start_logging(phone, kManyWorkers), 0);
    EXPECT_TRUE(eventually([&] { return phone.named("cat").size() >= 3; }));  // COMMAND, 2 readers
    EXPECT_EQ(stop ? stop_logging(phone) : start_logging(phone, 0), 0);
    const size_t collector = stop ? 0 : 1;
    EXPECT_TRUE(eventually([&] { return children_of_daemon(phone).size() == collector; })) << stop;
    EXPECT_EQ(phone.named("cat").size(), 1u) << stop;
  }
  EXPECT_EQ(overdue_kills(phone), Words());
}

TEST(Workers, CollectTheDaemonsLinesWhileItLogs) {
  Phone phone(quick_vendor());
  const auto collectors = [&phone] {
    std::vector<PhoneProcess> found;
    for (PhoneProcess& process : phone.named("logcat")) {
      if (!process.cmdline.empty() && process.cmdline[0] == "harrowmossd:SLC")
        found.push_back(std::move(process));
    }
    return found;
  };
  EXPECT_TRUE(collectors().empty());
  ASSERT_EQ(start_logging(phone, 0), 0);
  ASSERT_TRUE(eventually([&] { return collectors().size() == 1; }));
  const PhoneProcess first = collectors()[0];
  EXPECT_EQ(first.cmdline,
            (Words{"harrowmossd:SLC", "-v", "threadtime,usec", "-s",
                   "Harrowmoss harrowmoss harrowmossd", "-b", "main", "-f",
                   std::string(kSelfLog) + "/harrowmoss.txt", "-r", "10240", "-n", "2"}));
  EXPECT_EQ(first.pgrp, first.pid);  // a stop kills a collector with all that is its own
  phone.shell("log -t Other none of ours");
  phone.shell("log -t Harrowmoss the application speaks");
  const auto collected = [&phone] { return phone.read(std::string(kSelfLog) + "/harrowmoss.txt"); };
  EXPECT_TRUE(
      eventually([&] { return collected().find("the application speaks") != std::string::npos; }));
  EXPECT_NE(collected().find("execute: request = 2"), std::string::npos);
  EXPECT_EQ(collected().find("none of ours"), std::string::npos);

  ASSERT_TRUE(phone.signal(first.pid, SIGKILL));
  ASSERT_TRUE(
      eventually([&] { return collectors().size() == 1 && collectors()[0].pid != first.pid; }));
  const pid_t second = collectors()[0].pid;
  ASSERT_EQ(stop_logging(phone), 0);
  EXPECT_TRUE(eventually([&] { return count_lines(phone, "logger stopoped, exit") == 1; }));
  EXPECT_EQ(count_lines(phone, "waitpid " + std::to_string(first.pid) + " finished"), 1);
  EXPECT_EQ(count_lines(phone, "kill log collector " + std::to_string(second)), 1);
  EXPECT_TRUE(collectors().empty());
  EXPECT_NE(phone.read("/sdcard/zelkalog/.logger/harrowmoss.txt").find("execute: request = 3"),
            std::string::npos);
}

// The replacement ends as well, and is not replaced.
TEST(Workers, AreReplacedOnceWhenALogcatEndsByItself) {
  Phone phone(quick_vendor());
  const auto captured = [&](const std::string& file, const std::string& words) {
    phone.shell("log -t mark -b radio '" + words + "'");
    return eventually([&] { return phone.read(file).find(words) != std::string::npos; });
  };
  for (int round = 1; round <= 2; round++) {  // the numbers go on in the next run
    ASSERT_EQ(start_logging(phone, kMobile), 0);
    const std::string mobile = working_path(run_name(phone)) + "/mobile/QZ201A-V1.02-radio";
    const pid_t ended = logcat_of(phone, "radio").pid;
    ASSERT_TRUE(captured(mobile + ".txt", "before the end"));
    phone.setprop("bench.logcat.exit_pid", std::to_string(ended));
    const std::string file = mobile + "_" + std::to_string(round) + ".txt";
    ASSERT_TRUE(eventually([&] { return phone.exists(file); }));
    ASSERT_TRUE(captured(file, "after the end"));
    const pid_t replacement = logcat_of(phone, "radio").pid;
    phone.setprop("bench.logcat.exit_pid", std::to_string(replacement));
    const std::string reaped =
        "waitpid success, pid = " + std::to_string(replacement) + " ,stat = 1\n";
    ASSERT_TRUE(eventually([&] { return count_lines(phone, reaped) == 1; }));
    EXPECT_TRUE(serves(phone));  // whatever the reaping led to is over
    EXPECT_EQ(count_lines(phone, "update_logcat_log pid = " + std::to_string(ended)), 1);
    EXPECT_EQ(phone.read(file).find("before the end"), std::string::npos);
    ASSERT_EQ(stop_logging(phone), 0);
  }
}

TEST(Workers, AreKilledBehindTheirBoundWhenStubborn) {
  Phone phone(quick_vendor({"--prop", "bench.logcat.system.ignore_term=1"}));
  ASSERT_EQ(start_logging(phone, kMobile), 0);
  const std::string run = run_name(phone);
  const std::string stored = "/mobile/QZ201A-V1.02-system.txt";
  ASSERT_TRUE(eventually([&] { return phone.exists(working_path(run) + stored); }));
  ASSERT_TRUE(all_logcats_run(phone));
  const std::string stubborn = std::to_string(logcat_of(phone, "system").pid);
  ASSERT_EQ(stop_logging(phone), 0);
  const auto log = daemon_log(phone);
  const auto wait = lines_with(log, "wait s_debug_vesk_group begin, wait pid " + stubborn + " ");
  const auto killed = lines_with(log, "wait child " + stubborn + " timeout, kill it");
  ASSERT_EQ(wait.size(), 1u);
  ASSERT_EQ(killed.size(), 1u);
  constexpr int64_t kRoundingMs = 20;  // log times are cut, and of a clock that is steered
  const int64_t took = killed[0].time_ms - wait[0].time_ms + kRoundingMs;
  EXPECT_GE(took, 3100);
  EXPECT_LT(took, 6000);  // 31 looks of 100 ms
  EXPECT_TRUE(phone.exists(store_path(run) + stored));
  EXPECT_TRUE(eventually_childless(phone));
}

}  // namespace
