// Signals: what the main process makes of them, when, and what a worker's end takes with it.
#include <gtest/gtest.h>
#include <signal.h>
#include <string.h>

#include <atomic>
#include <thread>

#include "phone/host/daemon.h"

namespace {

using Texts = std::vector<std::string>;

// Where the first line that begins with `start` stands; -1: nowhere.
long place_of(const Texts& lines, const std::string& start) {
  for (size_t i = 0; i < lines.size(); i++) {
    if (lines[i].compare(0, start.size(), start) == 0) return static_cast<long>(i);
  }
  return -1;
}

TEST(Signals, AreIgnoredByTheMainProcessAndLogged) {
  const struct {
    int sig;
    const char* caught;
    const char* ignored;
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

// Sends the three signals to a process of the host as fast as a scheduler's step allows.
class Storm {
 public:
  explicit Storm(pid_t target)
      : thread_([this, target] {
          constexpr int kSignals[] = {SIGCHLD, SIGALRM, SIGTERM};
          for (; !over_; sent_++) {
            kill(target, kSignals[sent_ % 3]);
            usleep(100);
          }
        }) {}
  ~Storm() {
    over_ = true;
    thread_.join();
  }
  int sent() const { return sent_; }

 private:
  std::atomic<bool> over_{false};
  std::atomic<int> sent_{0};
  std::thread thread_;
};

TEST(Signals, AStormStopsNoRequest) {
  constexpr int kSignals = 10000, kSwitchEvery = 10;
  Phone phone(quick_vendor());
  const pid_t pid = phone.daemon_pid();
  int versions = 0, runs = 0;
  {
    Storm storm(phone.outer_pid(pid));
    while (storm.sent() < kSignals || runs == 0) {
      ASSERT_TRUE(serves(phone)) << "after " << storm.sent() << " signals";
      if (++versions % kSwitchEvery != 0) continue;
      ASSERT_EQ(start_logging(phone, kMobile), 0) << "after " << storm.sent() << " signals";
      EXPECT_TRUE(all_logcats_run(phone));
      ASSERT_EQ(stop_logging(phone), 0) << "after " << storm.sent() << " signals";
      runs++;
    }
  }
  EXPECT_TRUE(serves(phone));
  EXPECT_EQ(phone.daemon_pid(), pid);
  EXPECT_TRUE(eventually_childless(phone));
  // A bounded wait that a signal could cut would have killed an obedient worker.
  EXPECT_EQ(overdue_kills(phone), Texts());
  EXPECT_EQ(phone.getprop("persist.sys.zklog.dir_sequence"), std::to_string(runs));
}

// What comes while a stop waits is handled behind it, in ascending order, each once however often
// it came.
TEST(Signals, WaitUntilAStopIsOver) {
  const struct {
    std::vector<std::string> options;
    int mask;
    const char* waiting;  // the beginning of its line before the wait
    int lines_before;
  } rows[] = {
      // The fifth worker is gone; the sixth takes 3.1 s.
      {quick_vendor({"--prop", "bench.logcat.kernel.ignore_term=1"}), kMobile,
       "wait s_debug_vesk_group over. ", 5},
      // 15 s, unless the answer comes: it does below.
      {{"--prop", "bench.vendor.common_delay_ms=never"}, kMobile | kModem, "wait timeout ", 1},
  };
  for (size_t i = 0; i < std::size(rows); i++) {
    Phone phone(rows[i].options);
    ASSERT_TRUE(settled(phone));
    ASSERT_EQ(start_logging(phone, rows[i].mask), 0);
    ASSERT_TRUE(eventually([&] {  // every capture is as its options say
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
    for (const int sig : {SIGTERM, SIGINT, SIGTERM, SIGALRM}) ASSERT_EQ(kill(daemon, sig), 0);
    phone.setprop("sys.zelka.harrowmossd.action.mv_vendor_common_logs.done", "1");
    EXPECT_EQ(client.reply().size(), 20u);
    client.close();
    Texts lines;
    ASSERT_TRUE(eventually([&] {
      lines = main_thread_log(phone, from);
      return place_of(lines, "6 signum = 17") >= 0;
    }));
    const long order[] = {place_of(lines, "6 stop debug log over."),
                          place_of(lines, "3 ret: 0."),
                          place_of(lines, "6 ignore signal 2("),
                          place_of(lines, "6 alarm arrives, ignore signal 14("),
                          place_of(lines, "6 ignore signal 15("),
                          place_of(lines, "6 signum = 17")};
    EXPECT_GE(order[0], 0) << i;
    EXPECT_TRUE(std::is_sorted(std::begin(order), std::end(order)))
        << i << ::testing::PrintToString(order) << ::testing::PrintToString(lines);
    EXPECT_EQ(count_lines(phone, "ignore signal 15("), 1) << i;
    EXPECT_TRUE(eventually_childless(phone)) << i;
  }
}

// A start with the modem's type takes a second; a logcat that ends within it is replaced behind it.
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
    return place_of(lines, "3 update_logcat_log pid = ") >= 0;
  }));
  const long result = place_of(lines, "3 ret: 0.");
  EXPECT_GE(result, 0);
  EXPECT_GT(place_of(lines, "6 ignore signal 15("), result);
  EXPECT_GT(place_of(lines, "6 signum = 17"), result);
  EXPECT_GT(place_of(lines, "3 update_logcat_log pid = "), result);
  const std::string replacement =
      working_path(run_name(phone)) + "/mobile/QZ201A-V1.02-events_1.txt";
  EXPECT_TRUE(eventually([&] { return phone.exists(replacement); }));
}

TEST(Signals, EndAWorkerWithAllThatItStarted) {
  constexpr int kNet = 0x4;
  Phone phone(quick_vendor());
  ASSERT_TRUE(settled(phone));
  const struct {
    int sig;
    const char* says;
  } rows[] = {
      {SIGTERM, " receive signal 15(Terminated)"},
      {SIGINT, " receive signal 2(Interrupt)"},
      {SIGPIPE, " pipe broken, receive signal 13(Broken pipe)"},
      {SIGALRM, " alarm arrives, receive signal 14(Alarm clock)"},
  };
  for (const auto& row : rows) {
    ASSERT_EQ(start_logging(phone, kNet | kMobile), 0);
    ASSERT_TRUE(eventually([&] { return phone.named("sleep").size() == 1; }));  // the capture
    const auto workers = phone.named("mossd:debug-net");
    ASSERT_EQ(workers.size(), 1u);
    const std::string pid = std::to_string(workers[0].pid);
    ASSERT_TRUE(phone.signal(workers[0].pid, row.sig));
    EXPECT_TRUE(eventually([&] {
      for (const PhoneProcess& process : children_of_daemon(phone)) {
        if (process.pgrp == workers[0].pid) return false;
      }
      return phone.named("sleep").empty();
    })) << row.says;
    EXPECT_EQ(count_lines(phone, pid + row.says), 1) << row.says;
    EXPECT_TRUE(eventually([&] {
      return count_lines(phone, "waitpid success, pid = " + pid + " ,stat = 1\n") == 1;
    })) << row.says;
    EXPECT_TRUE(all_logcats_run(phone)) << "others go on";
    ASSERT_EQ(stop_logging(phone), 0);
  }
}

// The kernel's log tool hangs at start-up: its worker ends after 10 s, and the tool with it.
TEST(Signals, EndTheKernelLogWorkerWhenItHangs) {
  char tool[] = "/tmp/hanging-logcat.XXXXXX";
  close(mkstemp(tool));
  ASSERT_TRUE(write_file(tool, "#!/system/bin/mksh\nexec sleep 1000000\n", 0755));
  Phone phone({"--file", std::string(tool) + "=/system/bin/logcat"});
  unlink(tool);
  EXPECT_TRUE(serves(phone));  // nobody waits for it
  ASSERT_TRUE(eventually([&] { return phone.named("sleep").size() == 1; }));
  const std::vector<LogLine> forked = lines_with(daemon_log(phone), "fork ");
  ASSERT_EQ(forked.size(), 1u);
  const std::string pid = std::to_string(atoi(forked[0].text.c_str() + strlen("fork ")));
  EXPECT_EQ(forked[0].text, "fork " + pid + " to fetch kernel_pmic log");
  constexpr int kAlarmLimitMs = 15000;
  EXPECT_TRUE(eventually_childless(phone, kAlarmLimitMs));
  EXPECT_EQ(count_lines(phone, pid + " alarm arrives, receive signal 14(Alarm clock)"), 1);
  EXPECT_TRUE(eventually(
      [&] { return count_lines(phone, "waitpid success, pid = " + pid + " ,stat = 1\n") == 1; }));
  EXPECT_TRUE(serves(phone));
}

}  // namespace
