// The touch recorder as a worker of the real daemon: fingers move, a log run ends up in the store.
#include <gtest/gtest.h>

#include "phone/host/daemon.h"

namespace {

using Texts = std::vector<std::string>;

constexpr int kTouch = 0x10;
constexpr char kWorker[] = "ssd:debug-touch";  // the end of its name, which the kernel keeps

class Touch : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(settled(phone)); }
  void finger(const std::string& script) {
    const RunResult result = phone.shell("finger <<END\n" + script + "END\n");
    ASSERT_EQ(result.status, 0) << result.err;
  }
  // Starts logging with the one device `event0`; its recorder, once it records.
  PhoneProcess start() {
    finger("plug event0 zelka_goodix_ts\n");
    EXPECT_EQ(start_logging(phone, kTouch), 0);
    std::vector<PhoneProcess> found;
    EXPECT_TRUE(eventually([&] {
      found = phone.named(kWorker);
      return phone.run({"finger", "list"}).out == "event0 1 zelka_goodix_ts\n" && found.size() == 1;
    }));
    return found.empty() ? PhoneProcess() : found[0];
  }
  Phone phone{quick_vendor({"--input"})};
};

TEST_F(Touch, ASwipeIsInTheStoreAfterTheStop) {
  start();
  const std::string run = run_name(phone), file = "/touch/event.txt";
  finger("swipe event0 100 2000 300 1000 1\n");
  std::string events;
  EXPECT_TRUE(eventually([&] {
    events = phone.read(working_path(run) + file);
    return events.find("BTN_TOUCH            UP ") != std::string::npos;
  })) << events;
  EXPECT_EQ(stop_logging(phone), 0);
  EXPECT_FALSE(phone.exists(working_path(run) + file));
  EXPECT_EQ(phone.read(store_path(run) + file).compare(0, events.size(), events), 0);
}

// It waits for an event that does not come; the stop does not wait for it.
TEST_F(Touch, TheStopEndsItWithoutInput) {
  const PhoneProcess recorder = start();
  EXPECT_EQ(stop_logging(phone), 0);
  EXPECT_FALSE(is_alive(phone, recorder.pid));
  EXPECT_EQ(overdue_kills(phone), Texts());
}

}  // namespace
