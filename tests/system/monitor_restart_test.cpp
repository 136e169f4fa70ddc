// Logging that the size monitor has started anew by itself, in its own process.
#include <gtest/gtest.h>

#include "phone/host/daemon.h"

namespace {

constexpr int64_t kMiB = 1 << 20;
constexpr int kRescueMs = 60000;  // the monitor looks every 5 s; a busy machine is slow to follow
constexpr int kCoreDump = 0x100;  // a type that only sets a property

// Fills /data from within the current run, and waits for the run that follows the rescue.
void have_rescued(const Phone& phone) {
  const std::string run = run_name(phone);
  fill(phone, working_path(run) + "/filling", 100 * kMiB);
  ASSERT_TRUE(eventually([&] { return run_name(phone) != run; }, kRescueMs));
  ASSERT_TRUE(eventually([&] { return phone.getprop("sys.zelka.modemdump") == "on"; }));
}

// The files of debug logcats that are not the current run's, deleted ones among them.
std::vector<std::string> stray_files(const Phone& phone) {
  const std::string current = working_path(run_name(phone)) + "/";
  std::vector<std::string> stray;
  for (const PhoneProcess& logcat : debug_logcats(phone)) {
    for (const std::string& target : descriptors(phone, logcat.pid)) {
      if (target.find("/mobile/") != std::string::npos && target.find(current) != 0)
        stray.push_back(target);
    }
  }
  return stray;
}

void expect_one_set_of_logcats(const Phone& phone) {
  EXPECT_TRUE(eventually([&] { return debug_logcats(phone).size() == 6; }))
      << debug_logcats(phone).size();
  EXPECT_TRUE(eventually([&] { return stray_files(phone).empty(); }))
      << testing::PrintToString(stray_files(phone));
}

std::vector<std::string> small_data() {
  return quick_vendor({"--data-size", "200m"});
}

// The monitor is older than the run: it was started with the run before.
TEST(MonitorRestart, EndsTheWorkersOfARunThatIsYounger) {
  Phone phone(small_data());
  ASSERT_EQ(start_logging(phone, kMobile), 0);
  ASSERT_EQ(start_logging(phone, kMobile | kCoreDump), 0);
  have_rescued(phone);
  expect_one_set_of_logcats(phone);
  EXPECT_GT(available(phone, "/data"), 190 * kMiB);
  EXPECT_EQ(stop_logging(phone), 0);
  EXPECT_TRUE(eventually_childless(phone));
}

TEST(MonitorRestart, EndsALogcatThatHadReplacedAnother) {
  Phone phone(small_data());
  ASSERT_EQ(start_logging(phone, kMobile), 0);
  ASSERT_TRUE(all_logcats_run(phone));
  phone.setprop("bench.logcat.exit_pid", std::to_string(logcat_of(phone, "radio").pid));
  const std::string replacement =
      working_path(run_name(phone)) + "/mobile/QZ201A-V1.02-radio_1.txt";
  ASSERT_TRUE(eventually([&] { return phone.exists(replacement); }));
  ASSERT_TRUE(eventually([&] { return debug_logcats(phone).size() == 6; }));
  have_rescued(phone);
  expect_one_set_of_logcats(phone);
  EXPECT_EQ(stop_logging(phone), 0);
  EXPECT_TRUE(eventually_childless(phone));
}

TEST(MonitorRestart, IsFollowedByAStartWithAnotherMask) {
  Phone phone(small_data());
  ASSERT_EQ(start_logging(phone, kMobile), 0);
  have_rescued(phone);
  expect_one_set_of_logcats(phone);
  const std::string rescued = run_name(phone);
  const std::string main = "/mobile/QZ201A-V1.02-main.txt";
  ASSERT_TRUE(eventually([&] { return !phone.read(working_path(rescued) + main).empty(); }));
  phone.shell("log -t mark before the other mask");
  ASSERT_EQ(start_logging(phone, kMobile | kCoreDump), 0);
  expect_one_set_of_logcats(phone);
  EXPECT_EQ(overdue_kills(phone), std::vector<std::string>());
  EXPECT_NE(phone.read(store_path(rescued) + main).find("before the other mask"),
            std::string::npos);
  EXPECT_EQ(stop_logging(phone), 0);
  EXPECT_TRUE(eventually_childless(phone));
}

}  // namespace
