#include <thread>

#include "catchers/app_files.h"
#include "catchers/catchers.h"
#include "daemon/harrowmoss.h"
#include "debuglog/logcat.h"
#include "tests/inphone/catchers.h"

namespace {

using namespace inphone;

constexpr char kDebugMask[] = "/sys/module/ipc_router_core/parameters/debug_mask";
constexpr char kQmiProp[] = "persist.odm.zklog.qmimsg.enable";

using Mobile = Catchers;

// The argv of shells not called "sh": the workers'.
std::vector<Texts> shells_called(const std::string& name) {
  std::vector<Texts> found;
  for (const Texts& argv : calls_of("/system/bin/sh")) {
    if (argv[0] == name) found.push_back(argv);
  }
  return found;
}

TEST_F(Mobile, TheAppsFileSelectsOneOption) {
  const struct {
    const char* content;  // null: no file
    bool qmi, watch_fd;
  } rows[] = {
      {"qmi_msg watch_fd", true, false}, {"qmi_ms", false, false}, {"watch_fd2", false, true},
      {" watch_fd", false, false},       {nullptr, false, false},
  };
  size_t watchers = 0;
  for (const auto& row : rows) {
    unlink(kMobileCfg);
    if (row.content != nullptr) put(kMobileCfg, row.content);
    put(kDebugMask, "0\n");
    watch_fd_pid = 0;
    const PropertiesSince since;
    EXPECT_EQ(catcher_mobile_log(kRun, "mobile"), 0);
    Texts expected = {std::string(kQmiProp) + "=0"};
    if (row.qmi) expected.push_back(std::string(kQmiProp) + "=1");
    EXPECT_EQ(since.sets(), expected) << expected.size();
    EXPECT_EQ(get(kDebugMask), row.qmi ? "0x2\n" : "0\n");
    EXPECT_EQ(watch_fd_pid > 0, row.watch_fd) << (row.content == nullptr ? "none" : row.content);
    watchers += row.watch_fd ? 1 : 0;
    EXPECT_TRUE(eventually([=] { return shells_called("debug/vesk").size() == watchers; }));
  }
  EXPECT_EQ(
      logged(std::string("E open file ") + kMobileCfg + " failed ! No such file or directory\n"),
      1);
}

// A FIFO: opening or reading it would block forever.
TEST_F(Mobile, AFifoInPlaceOfTheAppsFileSelectsNoOption) {
  std::filesystem::create_directories(std::filesystem::path(kMobileCfg).parent_path());
  ASSERT_EQ(mkfifo(kMobileCfg, 0666), 0);
  EXPECT_EQ(catcher_mobile_log(kRun, "mobile"), 0);
  EXPECT_EQ(
      logged(std::string("E read file ") + kMobileCfg + " failed ! " + strerror(EAGAIN) + "\n"), 1);
  EXPECT_EQ(prop(kQmiProp), "0");
}

TEST_F(Mobile, TheDescriptorWatcherIsAWorkerWithItsOwnDirectory) {
  put(kMobileCfg, "watch_fd");
  catcher_mobile_log(kRun, "mobile");
  EXPECT_TRUE(eventually([] { return !shells_called("debug/vesk").empty(); }));
  EXPECT_EQ(shells_called("debug/vesk")[0],
            (Texts{"debug/vesk", "-c",
                   "/system/bin/sh /system/etc/watch_fd.sh > "
                   "/data/misc/zelkalog/1#run/mobile/fd/fd_log.txt"}));
  EXPECT_TRUE(
      eventually([] { return !get("/data/misc/zelkalog/1#run/mobile/fd/fd_log.txt").empty(); }));
  EXPECT_EQ(s_debug_group[1], watch_fd_pid);
  EXPECT_EQ(getpgid(watch_fd_pid), watch_fd_pid);
}

TEST_F(Mobile, TheNumberOfFilesIsMirroredAndCorrected) {
  const struct {
    const char* before;
    int count;
    const char* after;
  } rows[] = {{"", 9, ""}, {"5", 5, "5"}, {"-1", 9, "9"}, {"-3x", 9, "9"}, {"0", 0, "0"}};
  for (const auto& row : rows) {
    setprop(kLogcatFileCountProp, row.before);
    catcher_mobile_log(kRun, "mobile");
    EXPECT_EQ(s_logcat_file_count, row.count) << row.before;
    EXPECT_EQ(prop(kLogcatFileCountProp), row.after) << row.before;
  }
}

// The buffers of the started logcats, in fork order.
std::string buffers_started() {
  std::string buffers;
  for (const LogcatRow& row : s_debug_vesk_group)
    if (row.pid > 0) buffers += std::string(row.buffer) + " ";
  return buffers;
}

TEST(MobileBuffers, IncludeTheKernelsIfThereIsOne) {
  const std::pair<const char*, const char*> rows[] = {
      {"22", "main events system radio crash "},
      {"23", "main events system radio crash kernel "},
      {"", "main events system radio crash "}};
  for (const auto& [sdk, buffers] : rows) {
    EXPECT_EQ(with_properties({{"ro.build.version.sdk", sdk}},
                              [] {
                                catch_sigchld();
                                initialize_globals();
                                catcher_mobile_log(kRun, "mobile");
                                return buffers_started();
                              }),
              buffers)
        << sdk;
  }
}

TEST_F(Mobile, TheRouterLogIsCopiedForExactlyOne) {
  const struct {
    const char *enable, *cfg;
    const char* source;  // null: no copier
  } rows[] = {
      {"10", "true", nullptr},
      {" 1", "true", nullptr},
      {"1", "", "/d/ipc_logging/qrtr_0/log_cont"},
      {"1", "true", "/d/ipc_logging/qrtr_2/log_cont"},
      {"1", "true ", "/d/ipc_logging/qrtr_0/log_cont"},
  };
  size_t copiers = 0;
  for (const auto& row : rows) {
    setprop("persist.sys.qtrlog.enable", row.enable);
    setprop("persist.sys.harrowmoss.cfg", row.cfg);
    qrtr_log_pid = 0;
    EXPECT_EQ(catcher_mobile_log(kRun, "mobile"), 0);
    EXPECT_EQ(qrtr_log_pid > 0, row.source != nullptr) << row.enable;
    EXPECT_EQ(qtrlog_running, copiers > 0 || row.source != nullptr);
    if (row.source == nullptr) continue;
    copiers++;
    EXPECT_EQ(s_debug_group[copiers], qrtr_log_pid);
    EXPECT_EQ(getpgid(qrtr_log_pid), qrtr_log_pid);
    const std::string command =
        std::string("cat ") + row.source + " > /data/misc/zelkalog/qrtr_last.txt";
    EXPECT_TRUE(eventually([&] { return shell_commands().back() == command; })) << command;
  }
}

// The copier keeps its offset; the thread acts only if the file is full again.
TEST_F(Mobile, OneThreadKeepsTheRouterLogSmall) {
  setprop("persist.sys.qtrlog.enable", "1");
  put_bytes("/data/misc/zelkalog/tmp", 512000);
  ASSERT_EQ(rename("/data/misc/zelkalog/tmp", "/data/misc/zelkalog/qrtr_last.txt"), 0);
  qtrlog_running = true;
  std::thread(qtrlogThread, nullptr).detach();
  EXPECT_TRUE(eventually([] { return exists("/data/misc/zelkalog/qrtr_last.txt.1"); }));
  EXPECT_TRUE(eventually([] { return get("/data/misc/zelkalog/qrtr_last.txt") == "\n"; }));
  EXPECT_EQ(getFileSize("/data/misc/zelkalog/qrtr_last.txt.1"), 512000);
}

}  // namespace
