// The processes of a run: what they inherit, what happens when they end, and that none is left.
#include <gtest/gtest.h>
#include <stdlib.h>

#include "phone/host/daemon.h"

namespace {

using Words = std::vector<std::string>;

constexpr const char* kSelfLog = "/data/misc/zelkalog/.logger";

TEST(Workers, AreGoneAfterEachRun) {
  constexpr int kCycles = 6;
  Phone phone(quick_vendor());
  ASSERT_TRUE(settled(phone));
  phone.write("/sdcard/Android/data/cn.zelka.harrowmoss/files/.harrowmoss/MOBILE.cfg",
              "watch_fd\n");
  const pid_t daemon = phone.daemon_pid();
  const auto threads = [&] {
    return phone.list("/proc/" + std::to_string(daemon) + "/task").size();
  };
  const size_t threads_before = threads(), processes_before = phone.processes().size();
  const Words before = descriptors(phone, daemon);
  for (int i = 1; i <= kCycles; i++) {
    SCOPED_TRACE(i);
    phone.setprop("persist.sys.qtrlog.enable", "1");  // a reader that does not end by itself
    ASSERT_EQ(start_logging(phone, kMobile), 0);
    EXPECT_TRUE(all_logcats_run(phone));
    ASSERT_EQ(stop_logging(phone), 0);
    ASSERT_TRUE(eventually_childless(phone));
    Words held;
    EXPECT_TRUE(eventually([&] { return (held = descriptors(phone, daemon)) == before; }))
        << ::testing::PrintToString(held);
  }
  EXPECT_EQ(phone.daemon_pid(), daemon);
  EXPECT_EQ(phone.processes().size(), processes_before);
  // One is the router log's rotation, which polls every 10 s; another may be ending.
  EXPECT_TRUE(eventually([&] { return threads() <= threads_before + 1; }));
  EXPECT_EQ(phone.list("/sdcard/zelkalog").size(), kCycles + 2u);  // .logger, qrtr_last.txt
  EXPECT_EQ(phone.list("/data/misc/zelkalog"), Words{".logger"});
  EXPECT_EQ(phone.getprop("persist.sys.zklog.dir_sequence"), std::to_string(kCycles));
  EXPECT_EQ(overdue_kills(phone), Words());
}

// Every kind of worker except those that wait for a service: logcats, collector, router log,
// descriptor watcher, packet capture, power and fuel gauge, secure-world traces, watchdog.
constexpr int kManyWorkers = 0x1 | 0x4 | 0x8 | 0x20 | 0x10 | 0x400;

// Blocked or ignored signals that would keep a tool from ending, as bits of a signal set.
constexpr uint64_t kEndingSignals = 1 << (SIGTERM - 1) | 1 << (SIGPIPE - 1) | 1 << (SIGALRM - 1);

uint64_t signal_set(const Phone& phone, pid_t pid, const std::string& name) {
  const std::string status = phone.read("/proc/" + std::to_string(pid) + "/status");
  const size_t at = status.find(name);
  if (at == std::string::npos) return 0;  // ended meanwhile
  return strtoull(status.c_str() + at + name.size(), nullptr, 16);
}

// Wrongly inherited properties of a descendant of the daemon, a line each.
Words inherited_wrongly(const Phone& phone) {
  Words wrong;
  for (const PhoneProcess& worker : children_of_daemon(phone)) {
    const std::string who = std::to_string(worker.pid) + " " + worker.comm + ": ";
    const bool own_child = worker.ppid == phone.daemon_pid();
    for (const std::string& target : descriptors(phone, worker.pid)) {
      // A pipe between two of a script's tools is their own; the daemon's are not.
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
  // Polls: a child in fork still has everything.
  Words wrong;
  EXPECT_TRUE(eventually([&] { return (wrong = inherited_wrongly(phone)).empty(); }))
      << ::testing::PrintToString(wrong);
  int sockets = 0;
  for (const std::string& target : descriptors(phone, phone.daemon_pid()))
    sockets += target.find("socket:") == 0;
  EXPECT_EQ(sockets, 2);

  ASSERT_TRUE(client.send(request(3, 2)));
  EXPECT_EQ(hex(client.reply(kSwitchMs)), "1000000003000000020000000000000000000000");
  EXPECT_TRUE(eventually_childless(phone));
  EXPECT_EQ(overdue_kills(phone), Words());
}

// Also without a monitor, whose end triggers another check for leftovers; and when logging
// continues with another mask.
TEST(Workers, EndWithTheirChildren) {
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

TEST(Workers, CollectTheDaemonsLinesWhileLogging) {
  Phone phone(quick_vendor());
  EXPECT_TRUE(collectors(phone).empty());
  ASSERT_EQ(start_logging(phone, 0), 0);
  // One scan each: a process may be gone in the next.
  PhoneProcess first;
  const auto runs = [&](pid_t but_not, PhoneProcess* found) {
    return eventually([&] {
      const std::vector<PhoneProcess> seen = collectors(phone);
      if (seen.size() == 1) *found = seen[0];
      return seen.size() == 1 && found->pid != but_not;
    });
  };
  ASSERT_TRUE(runs(0, &first));
  EXPECT_EQ(first.cmdline,
            (Words{"harrowmossd:SLC", "-v", "threadtime,usec", "-s",
                   "Harrowmoss harrowmoss harrowmossd", "-b", "main", "-f",
                   std::string(kSelfLog) + "/harrowmoss.txt", "-r", "10240", "-n", "2"}));
  EXPECT_EQ(first.pgrp, first.pid);  // a stop kills the collector's whole group
  phone.shell("log -t Other none of ours");
  phone.shell("log -t Harrowmoss the application speaks");

  ASSERT_TRUE(phone.signal(first.pid, SIGKILL));
  PhoneProcess second;
  ASSERT_TRUE(runs(first.pid, &second));
  ASSERT_EQ(stop_logging(phone), 0);
  EXPECT_TRUE(eventually_logged(phone, "logger stopoped, exit"));
  EXPECT_EQ(count_lines(phone, "waitpid " + std::to_string(first.pid) + " finished"), 1);
  EXPECT_EQ(count_lines(phone, "kill log collector " + std::to_string(second.pid)), 1);
  EXPECT_TRUE(collectors(phone).empty());
  const std::string collected = phone.read("/sdcard/zelkalog/.logger/harrowmoss.txt");
  for (const char* line : {"execute: request = 2", "the application speaks", "execute: request = 3",
                           "move all log end="})
    EXPECT_NE(collected.find(line), std::string::npos) << line;
  EXPECT_EQ(collected.find("none of ours"), std::string::npos);
  EXPECT_EQ(collected.back(), '\n');
}

}  // namespace
