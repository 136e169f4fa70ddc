// What the main process starts again, what it does not, and what is left of a run whose processes
// were killed.
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>

#include <atomic>
#include <map>
#include <random>
#include <set>
#include <thread>

#include "phone/host/daemon.h"

namespace {

constexpr const char* kRestarted = "log size monitor killed by signal, try restart..";

std::string reaped(pid_t pid, bool exited) {
  return "waitpid success, pid = " + std::to_string(pid) + " ,stat = " + (exited ? "1" : "0") +
         "\n";
}

bool eventually_logged(const Phone& phone, const std::string& start, int times = 1) {
  return eventually([&] { return count_lines(phone, start) == times; });
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
  ASSERT_TRUE(eventually([&] { return size_monitor(phone).pid > 0; }));
  phone.setprop("persist.sys.zelka.log.del", "false");
  ASSERT_TRUE(phone.signal(size_monitor(phone).pid, SIGKILL));
  EXPECT_TRUE(eventually_logged(phone, kRestarted));
  EXPECT_TRUE(eventually_logged(phone, "log_enable = on  del_enable = false"));
  EXPECT_TRUE(eventually_logged(phone, " not open checkLogSize", 2));  // and once at start-up
  EXPECT_TRUE(serves(phone));
  EXPECT_EQ(size_monitor(phone).pid, 0);

  // With deletion on again the next start brings one.
  phone.setprop("persist.sys.zelka.log.del", "true");
  ASSERT_EQ(start_logging(phone, 0), 0);
  EXPECT_TRUE(eventually([&] { return size_monitor(phone).pid > 0; }));
}

// One that ends by itself is not restarted, and believed to run until logging is stopped.
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

// ---- Killing at random. ----

// The processes that a killer may meet: what logging has running, not the daemon's own commands.
std::vector<PhoneProcess> victims(const Phone& phone) {
  std::vector<PhoneProcess> found;
  for (PhoneProcess& process : phone.processes()) {
    const bool own = process.ppid == phone.daemon_pid() && process.state != 'Z';
    if (own && process.comm != "harrowmossd") found.push_back(std::move(process));
  }
  return found;
}

// What the logcats of a run have written, by file; compared with the store at the end.
using Snapshots = std::map<std::string, std::string>;

void take_snapshots(const Phone& phone, Snapshots* snapshots) {
  const std::string run = run_name(phone), mobile = working_path(run) + "/mobile";
  for (const std::string& name : phone.list(mobile)) {
    const std::string text = phone.read(mobile + "/" + name);
    // Only whole lines: a write may just be under way.
    (*snapshots)[store_path(run) + "/mobile/" + name] = text.substr(0, text.rfind('\n') + 1);
  }
}

// The times of every line that begins so. The asker's lines fill the log buffer many times over,
// and init cuts it: what is to be counted at the end is collected on the way.
class Seen {
 public:
  explicit Seen(const std::string& start) : start_(start) {}
  void look(const std::vector<LogLine>& log) {
    for (const LogLine& line : lines_with(log, start_)) times_.insert(line.time_ms);
  }
  int count() const { return static_cast<int>(times_.size()); }

 private:
  const std::string start_;
  std::set<int64_t> times_;
};

// Requests without a pause, each with a deadline of its own.
class Asker {
 public:
  explicit Asker(const Phone& phone)
      : thread_([this, &phone] {
          for (; !over_; answered_ += serves(phone)) asked_++;
        }) {}
  // How many were not answered.
  int stop() {
    over_ = true;
    thread_.join();
    return asked_ - answered_;
  }
  int asked() const { return asked_; }

 private:
  std::atomic<bool> over_{false};
  std::atomic<int> asked_{0}, answered_{0};
  std::thread thread_;
};

class Writer {
 public:
  explicit Writer(const Phone& phone)
      : thread_([this, &phone] {
          while (!over_)
            phone.shell("for b in main events system radio crash; do log -t line -b $b word; done");
        }) {}
  ~Writer() {
    over_ = true;
    thread_.join();
  }

 private:
  std::atomic<bool> over_{false};
  std::thread thread_;
};

// Seconds of the test below, at least; BENCH_SOAK_SECONDS makes it longer.
int soak_seconds() {
  const char* wanted = getenv("BENCH_SOAK_SECONDS");
  return wanted != nullptr ? atoi(wanted) : 10;
}

TEST(Supervision, SurvivesKillsAtRandom) {
  // Mobile, net, power, fingerprint; switched to and fro, so that what was killed comes again.
  constexpr int kMasks[] = {0x1 | 0x4 | 0x8 | 0x20, 0x1 | 0x4 | 0x20};
  constexpr int kKillsInARun = 8, kKills = 10;
  constexpr int64_t kMostMs = 60000;  // when it is still not `kKills`, because others have the CPU
  Phone phone(quick_vendor());
  ASSERT_TRUE(settled(phone));
  const size_t processes_before = phone.processes().size();
  std::mt19937 random(std::random_device{}());
  Snapshots snapshots;
  Seen restarts(kRestarted), replacements("update_logcat_log pid");
  const auto look = [&] {
    const std::vector<LogLine> log = daemon_log(phone);
    restarts.look(log);
    replacements.look(log);
  };
  int kills = 0, monitors = 0;
  {
    Writer writer(phone);
    Asker asker(phone);
    const int64_t start = monotonic_now_ms(), wanted_ms = soak_seconds() * INT64_C(1000);
    const auto goes_on = [&] {
      const int64_t passed = monotonic_now_ms() - start;
      return passed < wanted_ms || (kills < kKills && passed < kMostMs);
    };
    for (int run = 0; goes_on(); run++) {
      ASSERT_EQ(start_logging(phone, kMasks[run % 2]), 0);
      for (int i = 0; i < kKillsInARun && goes_on(); i++) {
        const std::vector<PhoneProcess> alive = victims(phone);
        if (alive.empty()) break;
        const PhoneProcess& victim = alive[random() % alive.size()];
        take_snapshots(phone, &snapshots);
        look();
        if (!phone.signal(victim.pid, SIGKILL)) continue;
        kills++;
        EXPECT_TRUE(eventually([&] { return !is_alive(phone, victim.pid); }));
        if (victim.comm != "harrowmossd-lsm") continue;
        monitors++;
        EXPECT_TRUE(eventually([&] { return size_monitor(phone).pid > 0; }))
            << "no monitor after kill " << kills;
      }
    }
    EXPECT_EQ(asker.stop(), 0) << "not answered, of " << asker.asked();
  }
  take_snapshots(phone, &snapshots);
  ASSERT_EQ(stop_logging(phone), 0);
  EXPECT_GT(kills, 0);
  look();
  EXPECT_EQ(restarts.count(), monitors);
  EXPECT_EQ(replacements.count(), 0);  // no killed logcat was replaced
  EXPECT_TRUE(eventually_childless(phone));
  EXPECT_EQ(phone.processes().size(), processes_before);
  for (const auto& [file, text] : snapshots)
    EXPECT_EQ(phone.read(file).compare(0, text.size(), text), 0) << file << " lost lines";
}

}  // namespace
