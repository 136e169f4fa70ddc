// The touch recorder as a worker of the real daemon: a swipe is found in the store.
#include <gtest/gtest.h>

#include "phone/host/daemon.h"

namespace {

TEST(Touch, ASwipeIsInTheStoreAfterTheStop) {
  constexpr int kTouch = 0x10;
  const std::string device = "zelka_goodix_ts", file = "/touch/event.txt";
  Phone phone(quick_vendor({"--input"}));
  ASSERT_TRUE(settled(phone));
  ASSERT_EQ(phone.shell("echo plug event0 " + device + " | finger").status, 0);
  ASSERT_EQ(start_logging(phone, kTouch), 0);
  ASSERT_TRUE(eventually([&] {  // one recorder reads it
    return phone.run({"finger", "list"}).out == "event0 1 " + device + "\n";
  }));
  ASSERT_EQ(phone.shell("echo swipe event0 100 2000 300 1000 1 | finger").status, 0);
  const std::string run = run_name(phone);
  std::string events;
  EXPECT_TRUE(eventually([&] {
    events = phone.read(working_path(run) + file);
    return events.find("BTN_TOUCH            UP ") != std::string::npos;
  })) << events;
  EXPECT_EQ(stop_logging(phone), 0);  // does not wait for an event that would wake the recorder
  EXPECT_EQ(overdue_kills(phone), std::vector<std::string>());
  EXPECT_FALSE(phone.exists(working_path(run) + file));
  EXPECT_EQ(phone.read(store_path(run) + file).compare(0, events.size(), events), 0);
}

}  // namespace
