#include "catchers/catchers.h"
#include "tests/inphone/catchers.h"

namespace {

using namespace inphone;

constexpr char kPackets[] = "/dev/bench/systrace.log";  // a line of hex per packet

class Systrace : public Catchers {
 protected:
  static void start_service() {
    setprop("ctl.start", "bench_systrace");
    ASSERT_TRUE(
        eventually([] { return get("/proc/net/unix").find("@systraceur") != std::string::npos; }));
  }
  // sendSystraceSocket() may end its process.
  static int status_of_sending(int code) {
    return status_in_child([=] { return sendSystraceSocket(code) == 0 ? 0 : 9; });
  }
};

TEST_F(Systrace, ACommandIsFourBytesTheHighestFirst) {
  start_service();
  const std::pair<int, const char*> rows[] = {
      {0, "00000000"}, {2, "00000002"}, {0x01020304, "01020304"}, {-2, "fffffffe"}};
  std::string all;
  for (const auto& [code, bytes] : rows) {
    EXPECT_EQ(status_of_sending(code), 0);
    all += std::string(bytes) + "\n";
    EXPECT_TRUE(eventually([&] { return get(kPackets) == all; })) << get(kPackets);
  }
  EXPECT_EQ(logged("E ret is 4\n"), 4);
}

// Waits for all attempts.
TEST_F(Systrace, WithoutAServiceTheWorkerGivesUp) {
  const int64_t start = monotonic_ms();
  EXPECT_EQ(WEXITSTATUS(status_of_sending(0)), 1);
  const int64_t took = monotonic_ms() - start;
  EXPECT_GE(took, 6200);  // 62 attempts, 100 ms after each
  EXPECT_LT(took, 20000);
  EXPECT_EQ(logged("E Failed connect to systrace, errno " + std::to_string(ECONNREFUSED)), 1);
}

TEST_F(Systrace, StartLeavesAWorkerThatSendsTheStart) {
  EXPECT_EQ(start_systrace_log(kRun, "systrace"), 0);
  EXPECT_EQ(prop("persist.sys.systrace.enable"), "1");
  ASSERT_EQ(workers().size(), 1u);
  const pid_t worker = workers()[0];
  const std::string pid = std::to_string(worker);
  EXPECT_EQ(logged("E fork child process, pid:" + pid + ", sendSystraceSocket \n"), 1);
  EXPECT_EQ(getpgid(worker), worker);
  EXPECT_TRUE(eventually([=] { return comm_of(worker) == ":debug-systrace"; }));
  start_service();
  int status = -1;
  EXPECT_EQ(wait_within(worker, 20000, &status), worker);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(get(kPackets), "00000000\n");
  EXPECT_EQ(logged("D sendSystraceSocket sucess"), 1);
}

TEST_F(Systrace, StopSwitchesOffClearsAndNotifiesTheService) {
  start_service();
  put("/data/anr/systrace/trace_1.html", "trace");
  put("/data/anr/anr_1", "stays");
  const PropertiesSince since;
  stop_systrace_service();
  EXPECT_EQ(since.sets(), Texts{"persist.sys.systrace.enable=0"});
  EXPECT_EQ(list("/data/anr/systrace"), Texts());
  EXPECT_TRUE(exists("/data/anr/anr_1"));
  EXPECT_EQ(get(kPackets), "00000002\n");
  EXPECT_EQ(logged("D stop systrace log"), 1);
  EXPECT_EQ(logged_beginning("E fork child process, pid:"), 1);
  EXPECT_EQ(logged("D sendSystraceSocket sucess"), 1);
  pid_t pids[4];
  EXPECT_EQ(list_children(pids, 4), 0);
}

// A service with a full queue blocks the worker in connect(): it is killed after 6 s.
TEST_F(Systrace, StopKillsAWorkerThatHangs) {
  setprop("bench.systrace.accept", "never");
  start_service();
  const int64_t start = monotonic_ms();
  stop_systrace_service();
  const int64_t took = monotonic_ms() - start;
  EXPECT_GE(took, 7000);  // 60 polls, 100 ms each, and a second after the kill
  EXPECT_LT(took, 20000);
  EXPECT_EQ(logged_beginning("E wait child "), 1);
  pid_t pids[4];
  EXPECT_EQ(list_children(pids, 4), 0);
}

}  // namespace
