#include "debuglog/run.h"
#include "selflog/self_logger.h"
#include "tests/inphone/inphone.h"

namespace {

using namespace inphone;
using loggersystem::startSelfLogCollector;

constexpr char kLogcatPath[] = "/system/bin/logcat";

class Collector : public ::testing::Test {
 protected:
  void SetUp() override {
    setprop("persist.sys.logger.enable", "on");
    setprop("persist.sys.zklog.enable", "on");
  }
  // The pid of the `count`-th logcat, once it runs.
  pid_t wait_for_logcat(size_t count) {
    EXPECT_TRUE(eventually([=] { return calls_of(kLogcatPath).size() == count; }));
    EXPECT_TRUE(eventually([] { return s_self_log_collector_pid > 0; }));
    return s_self_log_collector_pid;
  }
};

TEST_F(Collector, ASecondStartKeepsTheFirstCollector) {
  EXPECT_EQ(startSelfLogCollector(&s_self_log_collector_pid), 0);
  const pid_t logcat = wait_for_logcat(1);
  EXPECT_EQ(startSelfLogCollector(&s_self_log_collector_pid), -1);
  EXPECT_EQ(s_self_log_collector_pid, logcat);
  EXPECT_EQ(signal_process(logcat, SIGSTOP), 0);
  const std::string whole = "01-01 00:00:00.000001 whole\n";
  put(kCollectorFile, whole + "01-01 00:00:00.000002 to");
  // A second collector would have started its logcat by then.
  EXPECT_EQ(signal_process(logcat, SIGKILL), 0);
  EXPECT_TRUE(eventually([] { return calls_of(kLogcatPath).size() == 2; }));
  EXPECT_EQ(get(kCollectorFile).find(".000002 to"), std::string::npos);  // the torn line is cut
  EXPECT_EQ(get(kCollectorFile).find(whole), 0u);
}

TEST(CollectorSwitch, NeedsTheSelfLogSwitchedOn) {
  setprop("persist.sys.zklog.enable", "on");
  for (const char* value : {"", "off", "On"}) {
    setprop("persist.sys.logger.enable", value);
    EXPECT_EQ(startSelfLogCollector(&s_self_log_collector_pid), -1) << value;
  }
  EXPECT_EQ(log_texts(), Texts(3, "W not enabled self logger"));
}

}  // namespace
