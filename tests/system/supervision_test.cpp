// What the main process restarts, and what not.
#include <gtest/gtest.h>

#include "phone/host/daemon.h"

namespace {

constexpr const char* kRestarted = "log size monitor killed by signal, try restart..";

std::string reaped(pid_t pid, bool exited) {
  return "waitpid success, pid = " + std::to_string(pid) + " ,stat = " + (exited ? "1" : "0") +
         "\n";
}

TEST(Supervision, RestartsAKilledMonitor) {
  Phone phone(quick_vendor());
  EXPECT_EQ(size_monitor(phone).pid, 0);
  ASSERT_EQ(start_logging(phone, kMobile), 0);
  for (int times = 1; times <= 3; times++) {
    const PhoneProcess monitor = running_monitor(phone);
    EXPECT_EQ(monitor.ppid, phone.daemon_pid());
    ASSERT_TRUE(phone.signal(monitor.pid, times == 3 ? SIGABRT : SIGKILL));
    EXPECT_TRUE(eventually_logged(phone, kRestarted, times));
    EXPECT_TRUE(eventually([&] {
      const pid_t now = size_monitor(phone).pid;
      return now > 0 && now != monitor.pid;
    }));
    EXPECT_EQ(count_lines(phone, reaped(monitor.pid, false)), 1);
  }
  EXPECT_EQ(phone.named("harrowmossd-lsm").size(), 1u);
  EXPECT_TRUE(all_logcats_run(phone));
  ASSERT_EQ(stop_logging(phone), 0);
  EXPECT_TRUE(eventually_childless(phone));
  EXPECT_EQ(count_lines(phone, kRestarted), 3);
}

TEST(Supervision, LetsTheMonitorIgnoreWhatEndsOtherChildren) {
  Phone phone(quick_vendor());
  ASSERT_EQ(start_logging(phone, kMobile), 0);
  const pid_t monitor = running_monitor(phone).pid;
  for (const int sig : {SIGINT, SIGPIPE, SIGALRM, SIGTERM}) {
    ASSERT_TRUE(phone.signal(monitor, sig));
    EXPECT_TRUE(
        eventually_logged(phone, "receive signal " + std::to_string(sig) + ", is_deleting=0"));
  }
  EXPECT_EQ(size_monitor(phone).pid, monitor);
  ASSERT_EQ(stop_logging(phone), 0);
  EXPECT_TRUE(eventually_logged(phone, "receive signal 10, is_deleting=0"));
  EXPECT_TRUE(eventually_logged(phone, "will exit log size monitor " + std::to_string(monitor) +
                                           " - " + std::to_string(monitor)));
  EXPECT_TRUE(eventually_logged(phone, reaped(monitor, true)));
  EXPECT_EQ(count_lines(phone, kRestarted), 0);
}

TEST(Supervision, RestartsTheMonitorOnlyWhileDeletionIsOn) {
  Phone phone(quick_vendor());
  ASSERT_EQ(start_logging(phone, kMobile), 0);
  const pid_t monitor = running_monitor(phone).pid;
  phone.setprop("persist.sys.zelka.log.del", "false");
  ASSERT_TRUE(phone.signal(monitor, SIGKILL));
  EXPECT_TRUE(eventually_logged(phone, kRestarted));
  EXPECT_TRUE(eventually_logged(phone, "log_enable = on  del_enable = false"));
  EXPECT_TRUE(eventually_logged(phone, " not open checkLogSize", 2));  // and once at start-up
  EXPECT_TRUE(serves(phone));
  EXPECT_EQ(size_monitor(phone).pid, 0);

  // With deletion enabled, the next start starts a monitor.
  phone.setprop("persist.sys.zelka.log.del", "true");
  ASSERT_EQ(start_logging(phone, 0), 0);
  EXPECT_TRUE(eventually([&] { return size_monitor(phone).pid > 0; }));
}

// A monitor that ends by itself is not restarted, and considered running until logging is stopped.
TEST(Supervision, MissesAMonitorThatEndedByItself) {
  Phone phone(quick_vendor());
  ASSERT_EQ(start_logging(phone, kMobile), 0);
  const pid_t monitor = running_monitor(phone).pid;
  ASSERT_TRUE(phone.signal(monitor, SIGUSR1));
  EXPECT_TRUE(eventually_logged(phone, reaped(monitor, true)));
  ASSERT_EQ(start_logging(phone, 0), 0);  // another mask
  EXPECT_TRUE(eventually_logged(phone, "s_logsize_monitor is :1"));
  EXPECT_EQ(size_monitor(phone).pid, 0);
  ASSERT_EQ(stop_logging(phone), 0);
  ASSERT_EQ(start_logging(phone, 0), 0);
  EXPECT_TRUE(eventually([&] { return size_monitor(phone).pid > 0; }));
  EXPECT_EQ(count_lines(phone, kRestarted), 0);
}

// Before its handlers are set, signals that it ignores later would end the daemon.
TEST(Supervision, SignalsWaitForTheirHandlers) {
  Phone phone({}, Phone::Until::kBooted);
  pid_t pid = 0;
  ASSERT_TRUE(eventually([&] {
    pid = phone.daemon_pid();
    const std::string status = phone.read("/proc/" + std::to_string(pid) + "/status");
    const size_t at = status.find("SigBlk:");
    return at != std::string::npos &&
           (std::stoull(status.substr(at + 8, 16), nullptr, 16) & (1ull << (SIGTERM - 1))) != 0;
  }));
  ASSERT_TRUE(phone.signal(pid, SIGTERM));
  ASSERT_TRUE(settled(phone));
  EXPECT_EQ(phone.daemon_pid(), pid);
  EXPECT_TRUE(eventually_logged(phone, "ignore signal 15(Terminated)"));
}

// Without a shell to execute, the descriptor watcher continues as a copy of the main process.
TEST(Supervision, AStrayChildEndsWithItsConnection) {
  const Program no_shell("", 0644);
  Phone phone(quick_vendor({"--file", no_shell.over("/system/bin/sh")}));
  ASSERT_TRUE(settled(phone));
  phone.write("/sdcard/Android/data/cn.zelka.harrowmoss/files/.harrowmoss/MOBILE.cfg",
              "watch_fd\n");
  ASSERT_EQ(start_logging(phone, kMobile), 0);
  EXPECT_TRUE(eventually([&] {
    for (const LogLine& line : daemon_log(phone)) {
      if (line.text.find("arrives here,just exit. parent is") != std::string::npos) return true;
    }
    return false;
  }));
  EXPECT_TRUE(eventually([&] {  // the monitor names itself some time after the reply
    return phone.named("harrowmossd-lsm").size() == 1;
  }));
  EXPECT_TRUE(serves(phone));
}

}  // namespace
