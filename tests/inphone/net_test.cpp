#include "catchers/net.h"

#include "catchers/catchers.h"
#include "selflog/props.h"
#include "storage/shell.h"
#include "tests/inphone/catchers.h"

namespace {

using namespace inphone;

constexpr char kStart[] = "/data/misc/zelkalog/1#run/net/iptables-start.txt";
constexpr char kStop[] = "/data/misc/zelkalog/1#run/net/iptables-stop.txt";

class Net : public Catchers {
 protected:
  void SetUp() override {
    Catchers::SetUp();
    property_set(kEnableProp, "on");
    property_set(kTypeProp, "4");
  }
};

TEST_F(Net, TheWorkerRunsTheCaptureScript) {
  EXPECT_EQ(catcher_net_log(kRun, "net"), 0);
  EXPECT_EQ(workers(), std::vector<pid_t>{net_log_pid});
  EXPECT_EQ(getpgid(net_log_pid), net_log_pid);
  EXPECT_EQ(comm_of(net_log_pid), "mossd:debug-net");
  EXPECT_STREQ(net_log_dir, (std::string(kRun) + "/net").c_str());
  EXPECT_EQ(mode_and_owner(net_log_dir), "0777 1015:1015");
  // The blank in "QZ201A V1.02" is replaced; the script has written its 24 bytes.
  const std::string capture = std::string(kRun) + "/net/QZ201A-V1.02-netlog.pcap";
  EXPECT_TRUE(eventually([&] { return get(capture).size() == 24; }));
  EXPECT_EQ(mode_and_owner(capture), "0666 1015:1015");
  const Texts commands = shell_commands();
  EXPECT_EQ(std::count(commands.begin(), commands.end(),
                       "/system/bin/sh /system/etc/get_net_log.sh " + capture),
            1);
  // The stop also ends the script's tool.
  signal_group(net_log_pid, SIGKILL);
  EXPECT_TRUE(eventually([] { return group_is_gone(net_log_pid); }));
}

TEST_F(Net, TheSnapshotRunsItsCommandsInOrder) {
  catcher_net_log(kRun, "net");
  Texts commands = shell_commands();
  commands.erase(std::remove_if(commands.begin(), commands.end(),
                                [](const std::string& command) {
                                  return command.find("get_net_log.sh") != std::string::npos;
                                }),
                 commands.end());
  ASSERT_EQ(commands.size(), 33u);
  const std::pair<size_t, const char*> rows[] = {
      {0, "/system/bin/date"},
      {1, "/system/bin/ip xfrm state show"},
      {7, "/system/bin/iptables -t nat -L -n -v"},
      {8, "/system/bin/ip6tables -t raw -L -n -v"},
      {28, "/system/bin/ip -6 route show table r_rmnet_data2"},
      {32, "/system/bin/netstat -anp"}};
  for (const auto& [index, command] : rows) EXPECT_EQ(commands[index], command) << index;
}

// Commands that fail or print nothing, lines longer than any buffer, and empty rows.
TEST_F(Net, EverySectionByteForByte) {
  const std::string longest = std::string(5000, 'l') + "\n",
                    half = "no newline, \xff\xfe\x01\t\x7f";
  put("/data/long", std::string(1023, 'a') + "\n" + longest + std::string(1022, 'b') + "\n");
  put("/data/half", half);
  const net_cmd_path table[] = {
      {"/system/bin/echo", " one  two"},
      {"/system/bin/no_such_tool", " -x"},
      {"/system/bin/cat", " /data/missing"},
      {nullptr, " skipped"},
      {"/system/bin/skipped", nullptr},
      {"/system/bin/false", ""},
      {"/system/bin/cat", " /data/long"},
      {"/system/bin/cat", " /data/half"},
      {"", ""},
      {"echo out; echo err >&2; kill -9 $$", "; echo never"},
  };
  copy_or_abort(net_log_dir, "/data");
  put("/data/all.txt", std::string(100000, 'o'));  // of an earlier run
  catcher_net_cmd_log(table, std::size(table), "all.txt");
  EXPECT_EQ(get("/data/all.txt"),
            "/system/bin/echo one  two\none two\n\n"
            "/system/bin/no_such_tool -x\n\n"
            "/system/bin/cat /data/missing\n\n"
            "/system/bin/false\n\n"
            "/system/bin/cat /data/long\n" +
                std::string(1023, 'a') + "\n" + longest + std::string(1022, 'b') +
                "\n\n"
                "/system/bin/cat /data/half\n" +
                half +
                "\n"
                "\n\n"
                "echo out; echo err >&2; kill -9 $$; echo never\nout\n\n");
}

TEST_F(Net, AFailedStartIsReported) {
  const net_cmd_path table[] = {{"/system/bin/echo", " one"}, {"/system/bin/date", ""}};
  copy_or_abort(net_log_dir, "/data");
  without_forks([&] { catcher_net_cmd_log(table, std::size(table), "failed.txt"); });
  EXPECT_EQ(get("/data/failed.txt"), "/system/bin/echo one failed\n/system/bin/date failed\n");
}

TEST_F(Net, NoFileNoCommands) {
  const net_cmd_path table[] = {{"/system/bin/echo", " one"}};
  copy_or_abort(net_log_dir, "/data/missing");
  catcher_net_cmd_log(table, 1, "x.txt");
  copy_or_abort(net_log_dir, "");  // the root is read-only
  catcher_net_cmd_log(table, 1, "x.txt");
  copy_or_abort(net_log_dir, "/data");
  catcher_net_cmd_log(table, 1, nullptr);
  ASSERT_EQ(symlink("/data/target", "/data/link.txt"), 0);
  catcher_net_cmd_log(table, 1, "link.txt");
  EXPECT_EQ(shell_commands(), Texts());
  EXPECT_FALSE(exists("/data/target"));
}

TEST_F(Net, TheStartSnapshotFollowsTheSwitches) {
  const struct {
    const char *enable, *types;
    bool taken;
  } rows[] = {
      {"onx", "4", true}, {"on", "32767", true}, {"On", "4", false},
      {"on", "3", false}, {"on", "", false},
  };
  for (const auto& row : rows) {
    unlink(kStart);
    property_set(kEnableProp, row.enable);
    property_set(kTypeProp, row.types);
    EXPECT_EQ(catcher_net_log(kRun, "net"), 0);
    EXPECT_EQ(exists(kStart), row.taken) << row.enable << " " << row.types;
    EXPECT_GT(net_log_pid, 0);
  }
}

TEST_F(Net, OnlyARealStopTakesTheClosingSnapshot) {
  const struct {
    const char *enable, *types;
    bool started, taken;
  } rows[] = {
      {"offline", "4", true, true}, {"on", "4", true, false},   {"", "4", true, false},
      {"off", "3", true, false},    {"off", "4", false, false},
  };
  ASSERT_EQ(creat_dir((std::string(kRun) + "/net").c_str()), 0);
  for (const auto& row : rows) {
    unlink(kStop);
    property_set(kEnableProp, row.enable);
    property_set(kTypeProp, row.types);
    copy_or_abort(net_log_dir, row.started ? "/data/misc/zelkalog/1#run/net" : "");
    const long before = logged("D stop net cmd log");
    stop_net_cmd_log();
    EXPECT_EQ(exists(kStop), row.taken) << row.enable << " " << row.types;
    EXPECT_EQ(logged("D stop net cmd log") - before, row.taken ? 1 : 0);
    EXPECT_STREQ(net_log_dir, "");  // cleared in any case
  }
}

}  // namespace
