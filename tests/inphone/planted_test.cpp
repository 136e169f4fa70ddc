// Links and FIFOs planted where the daemon writes, creates, moves or removes something.
#include <functional>

#include "catchers/artefacts.h"
#include "catchers/catchers.h"
#include "catchers/net.h"
#include "debuglog/commands.h"
#include "debuglog/logcat.h"
#include "debuglog/settings.h"
#include "feedback/feedback.h"
#include "input/event_saver.h"
#include "selflog/self_logger.h"
#include "tests/inphone/catchers.h"

namespace {

using namespace inphone;

// A file and a directory of the platform that must not change.
constexpr char kFile[] = "/data/system/packages.xml";
constexpr char kDirectory[] = "/data/system";
constexpr char kFifo[] = "";

class Planted : public Catchers {
 protected:
  void SetUp() override {
    Catchers::SetUp();
    umask(077);
    put(kFile, "packages");
    alarm(100);  // no call may wait for a FIFO
  }
  static void plant(const std::string& path, const char* what) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::filesystem::remove_all(path);
    ASSERT_EQ(*what == '\0' ? mkfifo(path.c_str(), 0666) : symlink(what, path.c_str()), 0) << path;
  }
  static std::string platform() {
    std::string all = get(kFile) + " " + mode_and_owner(kFile) + " " + mode_and_owner(kDirectory);
    for (const std::string& name : list(kDirectory)) all += " " + name;
    return all;
  }
  static long refusals() {
    const Texts texts = log_texts();
    return std::count_if(texts.begin(), texts.end(), [](const std::string& text) {
      return text[0] == 'E' && text.find("in the way of") != std::string::npos;
    });
  }
};

#define RUN "/data/misc/zelkalog/1#run"

void run_net_command() {
  const net_cmd_path date[] = {{"date", ""}};
  catcher_net_cmd_log(date, 1, "iptables-stop.txt");
}

char value[PROPERTY_VALUE_MAX];

const struct {
  const char *path, *what;
  std::function<void()> act;
  bool quiet = false;  // the failed open is itself logged
} kPlanted[] = {
    {RUN "/mobile", kDirectory, [] { creat_dir(RUN "/mobile/x"); }},
    {RUN "/mobile", kDirectory, [] { creat_dir(RUN "/mobile/"); }},
    {RUN "/mobile", kDirectory, [] { creat_file(RUN "/mobile/main.txt"); }, true},
    {RUN "/main.txt", kFile, [] { creat_file(RUN "/main.txt"); }, true},
    {RUN "/main.txt", kFifo, [] { creat_file(RUN "/main.txt"); }, true},
    {RUN "/mobile", kDirectory, [] { get_logcat_control_message(RUN "/mobile"); }},
    {RUN "/net/iptables-stop.txt", kFile, run_net_command, true},
    {RUN "/net/iptables-stop.txt", kFifo, run_net_command, true},
    {RUN "/bugreport", kDirectory, [] { catch_bugreport(true, RUN); }},
    {RUN "/bugreport/bugreport_stop.zip", kFile, [] { catch_bugreport(false, RUN); }},
    {RUN "/power", kDirectory, [] { start_power_log(RUN, "power"); }},
    {RUN "/fingerprint/qsee_log.txt", kFile,
     [] {
       catcher_fp_log(RUN, "fingerprint");
       EXPECT_TRUE(eventually([] { return !is_running(qsee_log_pid); }));
     }},
    {RUN "/fingerprint/tzbsp.txt.1", kFile,
     [] {
       put(RUN "/fingerprint/tzbsp.txt", "full");
       rotateFpLogs(RUN "/fingerprint", "tzbsp.txt", 4, 1);
       EXPECT_EQ(get(RUN "/fingerprint/tzbsp.txt"), "full");
     }},
    {RUN "/touch/x.txt", kFile,
     [] {
       char base[] = RUN "/touch/x";
       EXPECT_LT(EventSaver(base).openLogFile(), 0);
     },
     true},
    {"/sdcard/zelkalog", kDirectory, [] { move_dir("/data/source", "/sdcard/zelkalog/", ""); }},
    {"/sdcard/zelkalog", kDirectory, [] { delete_dir("/sdcard/zelkalog/*"); }},
    {"/sdcard/zelkalog", kDirectory, [] { delete_dir("/sdcard/zelkalog/packages.xml"); }},
    {"/sdcard/zelkalog", kDirectory, [] { remove_tree("/sdcard/zelkalog/packages.xml"); }},
    {"/sdcard/zelkalog/traces", kDirectory,
     [] {
       put("/data/local/traces/t", "t");
       do_move_traces(nullptr);
     }},
    {"/sdcard/out/source/sub/b", kFile, [] { copy_dir("/data/source", "/sdcard/out"); }},
    {"/sdcard/out/source/sub", kDirectory, [] { copy_dir2("/data/source", "/sdcard/out"); }},
    {"/sdcard/out/source/a", kFile, [] { copy_dir("/data/source/", "/sdcard/out"); }},
    {"/sdcard/out/source/a", kFile, [] { move_dir("/data/source", "/sdcard/out", ""); }},
    {"/sdcard/out/a", kFile, [] { copy_file("/data/source/a", "/sdcard/out"); }},
    {"/sdcard/out/a", kFile, [] { copy_file("/data/source/a", "/sdcard/out/a"); }},
    {"/sdcard/out/system.prop", kFile, [] { copy_system_propertie("/sdcard/out", ""); }},
    {"/sdcard/out/others.prop", kFile, [] { copy_system_propertie("/sdcard/out", ""); }, true},
    {"/sdcard/out/others.prop", kFifo, [] { copy_system_propertie("/sdcard/out", ""); }, true},
    {"/sdcard/out", kDirectory, [] { copy_system_propertie("/sdcard/out", ""); }},
    {"/persist/harrowmoss/key", kFile, [] { EXPECT_EQ(setPersistProperty("key", "v"), -1); }, true},
    {"/persist/harrowmoss/key", kFifo, [] { EXPECT_EQ(setPersistProperty("key", "v"), -1); }, true},
    {"/persist/harrowmoss/key", kFifo, [] { getPersistProperty("key", value); }, true},
    {"/data/misc/zelkalog/.logger", kDirectory,
     [] { EXPECT_EQ(loggersystem::logger_mkdir("/data/misc/zelkalog/.logger/x"), -1); }, true},
};

TEST_F(Planted, LinksAndFifosAreNeitherFollowedNorWaitedFor) {
  put("/data/source/a", "a");
  put("/data/source/sub/b", "b");
  setprop("persist.sys.zelka.harrowmossd.bugreport_enable", "1");
  copy_or_abort(net_log_dir, RUN "/net");
  for (const auto& row : kPlanted) {
    plant(row.path, row.what);
    const std::string before = platform();
    const long refused = refusals();
    row.act();
    EXPECT_EQ(platform(), before) << row.path;
    EXPECT_TRUE(row.quiet || eventually([&] { return refusals() > refused; })) << row.path;
    EXPECT_EQ(get("/data/source/sub/b"), "b") << row.path;
    std::filesystem::remove_all(row.path);
    std::filesystem::remove_all("/sdcard/out");
  }
}

TEST_F(Planted, ALogcatIsNotGivenALink) {
  plant(RUN "/mobile", kDirectory);
  const std::string before = platform();
  catcher_logcat_log("main", RUN "/mobile", 1);
  const pid_t worker = s_debug_vesk_group[0].pid;
  EXPECT_TRUE(eventually([=] { return !is_running(worker); }));
  EXPECT_EQ(calls_of(kLogcat).size(), 0u);
  EXPECT_EQ(platform(), before);
}

// One planted name must not stop the move of other runs or the chmod -R of the store.
TEST_F(Planted, InTheStoreAffectsOnlyItsOwnRun) {
  for (const char* file : {RUN "/main.txt", "/data/misc/zelkalog/2#run/main.txt"}) put(file, "log");
  plant("/sdcard/zelkalog/1#run", kDirectory);
  plant("/sdcard/zelkalog/other", kDirectory);
  const std::string before = platform();
  move_dir("/data/misc/zelkalog/*", "/sdcard/zelkalog/", nullptr);
  EXPECT_EQ(platform(), before);
  EXPECT_EQ(get(RUN "/main.txt"), "log");
  EXPECT_EQ(get("/sdcard/zelkalog/2#run/main.txt"), "log");
}

TEST(PlantedSelfLog, IsNotFollowed) {
  put(kFile, "packages");
  std::filesystem::create_directories("/data/misc/zelkalog/.logger");
  ASSERT_EQ(symlink(kFile, kSelfLogFile), 0);
  setprop("persist.sys.logger.enable", "on");
  EXPECT_EQ(loggersystem::logger("a line"), -1);
  EXPECT_EQ(get(kFile), "packages");
  unlink(kSelfLogFile);
  EXPECT_EQ(loggersystem::logger("a line"), 0);  // the next one gets through
  EXPECT_FALSE(get(kSelfLogFile).empty());
}

// On a phone /sdcard is a chain of the platform's own links.
TEST(PlatformsWay, ToSharedStorageIsFollowed) {
  remove_sdcard();
  std::filesystem::create_directories("/data/storage/self");
  ASSERT_EQ(symlink("/data/media/0", "/data/storage/self/primary"), 0);
  ASSERT_EQ(symlink("/data/storage/self/primary", "/sdcard"), 0);
  EXPECT_EQ(creat_dir("/sdcard/zelkalog/1#run"), 0);
  EXPECT_EQ(creat_file("/sdcard/zelkalog/1#run/f"), 0);
  EXPECT_TRUE(exists("/data/media/0/zelkalog/1#run/f"));
  EXPECT_FALSE(is_trap("/sdcard"));
  EXPECT_FALSE(is_trap("/sdcard/"));
  EXPECT_FALSE(is_trap("/sdcard/zelkalog/"));
  EXPECT_FALSE(is_trap("/sdcard/zelkalog/missing/x"));
  ASSERT_EQ(symlink("/data", "/sdcard/zelkalog/link"), 0);
  for (const char* path :
       {"/sdcard/zelkalog/link", "/sdcard/zelkalog/link/", "/sdcard/zelkalog/link/x"})
    EXPECT_TRUE(is_trap(path)) << path;
}

}  // namespace
