// Signals: how and when the main process handles them, and what the end of a worker causes.
#include <gtest/gtest.h>

#include "phone/host/daemon.h"

namespace {

using Texts = std::vector<std::string>;

TEST(Signals, AreIgnoredByTheMainProcessAndLogged) {
  const struct {
    int sig;
    const char *caught, *ignored;
  } rows[] = {
      {SIGTERM, "6 catch signal 15(Terminated)", "6 ignore signal 15(Terminated)"},
      {SIGINT, "6 catch signal 2(Interrupt)", "6 ignore signal 2(Interrupt)"},
      {SIGPIPE, "6 catch signal 13(Broken pipe)", "6 pipe broken, ignore signal 13(Broken pipe)"},
      {SIGALRM, "6 catch signal 14(Alarm clock)", "6 alarm arrives, ignore signal 14(Alarm clock)"},
  };
  Phone phone;
  ASSERT_TRUE(settled(phone));
  const pid_t pid = phone.daemon_pid();
  const std::string whom =
      ", pid:" + std::to_string(pid) + ", parent pid:1, s_harrowmossd_pid:" + std::to_string(pid);
  const std::string frame = request(1, 1);
  for (const bool half_a_frame : {false, true}) {
    for (const auto& row : rows) {
      Client client(phone);
      if (half_a_frame) {
        ASSERT_TRUE(client.send(frame.substr(0, 5)));
      } else {
        client.close();
      }
      ASSERT_TRUE(eventually([&] {
        return main_thread_log(phone, 0).back().find(half_a_frame ? "read socket" : "closing") !=
               std::string::npos;
      }));
      const size_t from = daemon_log(phone).size();
      ASSERT_TRUE(phone.signal(pid, row.sig));
      Texts lines;
      EXPECT_TRUE(eventually([&] { return (lines = main_thread_log(phone, from)).size() >= 2; }));
      EXPECT_EQ(lines, (Texts{row.caught + whom, row.ignored})) << half_a_frame;
      if (!half_a_frame) continue;
      ASSERT_TRUE(client.send(frame.substr(5)));
      EXPECT_EQ(client.reply().size(), 20u);
    }
  }
  EXPECT_TRUE(serves(phone));
  EXPECT_EQ(phone.daemon_pid(), pid);
}

// Signals that arrive during a stop are handled after it, in ascending order, each once.
TEST(Signals, WaitUntilAStopIsOver) {
  const struct {
    std::vector<std::string> options;
    int mask;
    const char* waiting;  // the start of its log line before the wait
    int lines_before;
  } rows[] = {
      // The fifth worker has ended; the sixth takes 3.1 s.
      {quick_vendor({"--prop", "bench.logcat.kernel.ignore_term=1"}), kMobile,
       "wait s_debug_vesk_group over. ", 5},
      // 15 s without the answer, which comes below.
      {{"--prop", "bench.vendor.common_delay_ms=never"}, kMobile | kModem, "wait timeout ", 1},
  };
  for (size_t i = 0; i < std::size(rows); i++) {
    Phone phone(rows[i].options);
    ASSERT_TRUE(settled(phone));
    // A bundle may handle signals while it waits; a start or stop after it may not.
    ASSERT_EQ(ask(phone, 6, little_endian(0, 4) + string16("/sdcard/out"), kSwitchMs), "00000000");
    ASSERT_EQ(start_logging(phone, rows[i].mask), 0);
    ASSERT_TRUE(eventually([&] {  // every capture runs
      return phone.list(working_path(run_name(phone)) + "/mobile").size() >= 7;
    }));
    ASSERT_TRUE(all_logcats_run(phone));
    const pid_t daemon = phone.outer_pid(phone.daemon_pid());
    ASSERT_GT(daemon, 1);
    const size_t from = daemon_log(phone).size();
    Client client(phone);
    ASSERT_TRUE(client.send(request(3, 1)));
    ASSERT_TRUE(
        eventually([&] { return count_lines(phone, rows[i].waiting) == rows[i].lines_before; }));
    for (const int sig : {SIGTERM, SIGINT, SIGTERM, SIGALRM}) ASSERT_TRUE(signal_one(daemon, sig));
    phone.setprop("sys.zelka.harrowmossd.action.mv_vendor_common_logs.done", "1");
    EXPECT_EQ(client.reply().size(), 20u);
    client.close();
    Texts lines;
    ASSERT_TRUE(eventually([&] {
      lines = main_thread_log(phone, from);
      return index_of(lines, "6 signum = 17") < lines.size();
    }));
    const size_t order[] = {index_of(lines, "6 stop debug log over."),
                            index_of(lines, "3 ret: 0."),
                            index_of(lines, "6 ignore signal 2("),
                            index_of(lines, "6 alarm arrives, ignore signal 14("),
                            index_of(lines, "6 ignore signal 15("),
                            index_of(lines, "6 signum = 17")};
    EXPECT_TRUE(std::is_sorted(std::begin(order), std::end(order)) && order[5] < lines.size())
        << i << ::testing::PrintToString(order) << ::testing::PrintToString(lines);
    EXPECT_EQ(count_lines(phone, "ignore signal 15("), 1) << i;
    EXPECT_EQ(overdue_kills(phone).size(), i == 0 ? 1u : 0u) << i;
    EXPECT_TRUE(eventually_childless(phone)) << i;
  }
}

// A start with the modem's type takes a second; a logcat that ends within it is replaced
// afterwards.
TEST(Signals, WaitUntilAStartIsOver) {
  Phone phone(quick_vendor({"--prop", "bench.logcat.events.exit_after_ms=100"}));
  ASSERT_TRUE(settled(phone));
  const size_t from = daemon_log(phone).size();
  Client client(phone);
  ASSERT_TRUE(client.send(request(2, 1, little_endian(kMobile | kModem, 4))));
  ASSERT_TRUE(
      eventually([&] { return phone.getprop("sys.zelka.diag_mdlog_over_qdss_state") == "1"; }));
  ASSERT_TRUE(phone.signal(phone.daemon_pid(), SIGTERM));
  EXPECT_EQ(client.reply().size(), 20u);
  Texts lines;
  EXPECT_TRUE(eventually([&] {
    lines = main_thread_log(phone, from);
    return index_of(lines, "3 update_logcat_log pid = ") < lines.size();
  }));
  const size_t result = index_of(lines, "3 ret: 0.");
  EXPECT_GT(index_of(lines, "6 ignore signal 15("), result);
  EXPECT_GT(index_of(lines, "6 signum = 17"), result);
  EXPECT_GT(index_of(lines, "3 update_logcat_log pid = "), result);
  const std::string replacement =
      working_path(run_name(phone)) + "/mobile/QZ201A-V1.02-events_1.txt";
  EXPECT_TRUE(eventually([&] { return phone.exists(replacement); }));
}

// In one run; each signal ends another worker and its shell's child.
TEST(Signals, EndAWorkerWithItsChildren) {
  Phone phone(quick_vendor());
  ASSERT_TRUE(settled(phone));
  const struct {
    int sig;
    const char* worker;  // the end of its name
    const char* says;
  } rows[] = {
      {SIGTERM, "mossd:debug-net", " receive signal 15(Terminated)"},
      {SIGINT, "wmossd:debug-fg", " receive signal 2(Interrupt)"},
      {SIGPIPE, ":debug-MPSSDump", " pipe broken, receive signal 13(Broken pipe)"},
      {SIGALRM, "ssd:debug-touch", " alarm arrives, receive signal 14(Alarm clock)"},
  };
  constexpr int kMask = kMobile | 0x4 | 0x8 | 0x400 | 0x10;  // power has the fuel gauge
  ASSERT_EQ(start_logging(phone, kMask), 0);
  for (const auto& row : rows) {
    SCOPED_TRACE(row.worker);
    std::vector<PhoneProcess> workers;
    ASSERT_TRUE(eventually([&] { return (workers = phone.named(row.worker)).size() == 1; }));
    const pid_t pid = workers[0].pid;
    ASSERT_TRUE(phone.signal(pid, row.sig));
    EXPECT_TRUE(eventually([&] {
      for (const PhoneProcess& process : phone.processes()) {
        if (process.pgrp == pid) return false;
      }
      return true;
    }));
    EXPECT_EQ(count_lines(phone, std::to_string(pid) + row.says), 1);
    EXPECT_TRUE(
        eventually_logged(phone, "waitpid success, pid = " + std::to_string(pid) + " ,stat = 1\n"));
  }
  EXPECT_TRUE(all_logcats_run(phone)) << "others go on";
  ASSERT_EQ(stop_logging(phone), 0);
}

// The kernel-log tool hangs at start-up: its worker and the tool end after 10 s.
TEST(Signals, EndTheKernelLogWorkerWhenItHangs) {
  const Program hangs("exec sleep 1000000");
  Phone phone({"--file", hangs.over("/system/bin/logcat")});
  EXPECT_TRUE(serves(phone));  // not blocked by it
  ASSERT_TRUE(eventually([&] { return phone.named("sleep").size() == 1; }));
  const std::vector<LogLine> forked = lines_with(daemon_log(phone), "fork ");
  ASSERT_EQ(forked.size(), 1u);
  const std::string pid = std::to_string(atoi(forked[0].text.c_str() + strlen("fork ")));
  EXPECT_EQ(forked[0].text, "fork " + pid + " to fetch kernel_pmic log");
  EXPECT_TRUE(eventually_childless(phone));
  EXPECT_EQ(count_lines(phone, pid + " alarm arrives, receive signal 14(Alarm clock)"), 1);
  EXPECT_TRUE(eventually_logged(phone, "waitpid success, pid = " + pid + " ,stat = 1\n"));
  EXPECT_TRUE(serves(phone));
}

}  // namespace
