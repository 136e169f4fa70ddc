#include "debuglog/logcat.h"

#include <signal.h>
#include <sys/wait.h>

#include <regex>

#include "daemon/harrowmoss.h"
#include "debuglog/run.h"
#include "debuglog/workers.h"
#include "selflog/props.h"
#include "storage/utils.h"
#include "tests/inphone/inphone.h"

namespace {

using namespace inphone;

constexpr const char* kAllBuffers[] = {"main", "events", "system", "radio", "crash", "kernel"};

class Logcat : public ::testing::Test {
 protected:
  void SetUp() override {
    catch_sigchld();
    initialize_globals();
    strcpy(s_log_store_path, "/data/misc/zelkalog/1#run");
    ASSERT_EQ(creat_dir("/data/misc/zelkalog/1#run/mobile"), 0);
  }
  // The recorded calls once there are `count` of them.
  static std::vector<Texts> logcats(size_t count) {
    EXPECT_TRUE(eventually([=] { return calls_of(kLogcat).size() >= count; }));
    EXPECT_EQ(calls_of(kLogcat).size(), count);
    return calls_of(kLogcat);
  }
  static Texts argv_of(const std::string& name) {
    for (const Texts& argv : calls_of(kLogcat)) {
      if (argv[0] == name) return argv;
    }
    return {};
  }
};

TEST(LogcatFileName, IsTheBuildAndTheTagInTheDirectory) {
  const std::string id = "ro.vendor.build.display.id";
  const struct {
    std::vector<std::pair<std::string, std::string>> properties;
    const char *directory, *tag, *file;
  } rows[] = {
      {{{id, "DEMO V1.02 beta"}}, "/a/b/", "main", "/a/b/DEMO-V1.02-beta-main.txt"},
      {{{id, " x  y "}}, "/a", "radio_1", "/a/-x--y--radio_1.txt"},
      {{{id, "../../pwn"}}, "/a", "main", "/a/..-..-pwn-main.txt"},
      {{{id, ""}}, "/a", "kernel", "/a/zelka-kernel.txt"},
      {{{id, "x"}}, "", "main", "/x-main.txt"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(with_properties(row.properties,
                              [&row] {
                                char path[256] = {};
                                strcpy(path, row.directory);
                                const int length = build_logcat_file_name(row.tag, path);
                                return std::string(path) + " " + std::to_string(length);
                              }),
              std::string(row.file) + " " + std::to_string(strlen(row.file) - strlen(".txt")));
  }
}

TEST_F(Logcat, EveryBufferGetsExactlyTheseArguments) {
  const char* const general_kib[] = {"10240", "1024", "1024", "1024", "1024", "2048"};
  for (const char* buffer : kAllBuffers) {
    EXPECT_EQ(catcher_logcat_log(buffer, "/data/d", 1), 0);
    EXPECT_EQ(catcher_logcat_log(buffer, "/data/g/", 0), 0);
  }
  logcats(12);  // the next one is journaled after them
  s_logcat_file_count = 5;
  catcher_logcat_log("main", "/data/five", 1);
  logcats(13);
  Texts counts = counts_of_main();
  EXPECT_EQ(std::count(counts.begin(), counts.end(), "5"), 1);
  for (int i = 0; i < kLogBufferCount; i++) {
    const std::string buffer = kAllBuffers[i];
    const std::string file = "/QZ201A-V1.02-" + buffer + ".txt";
    const std::string debug = "harrowmossd:debug-" + buffer + "-vesk";
    const std::string general = "harrowmossd:general-" + buffer + "-vesk";
    EXPECT_EQ(argv_of(debug), (Texts{debug, "-v", "threadtime,usec", "-b", buffer, "-f",
                                     "/data/d" + file, "-r", "102400", "-n", "9"}));
    EXPECT_EQ(argv_of(general), (Texts{general, "-v", "threadtime", "-b", buffer, "-f",
                                       "/data/g" + file, "-r", general_kib[i], "-n", "1"}));
    EXPECT_STREQ(s_debug_vesk_group[i].buffer, buffer.c_str());
    EXPECT_EQ(getpgid(s_debug_vesk_group[i].pid), s_debug_vesk_group[i].pid);
    EXPECT_TRUE(is_ours(s_general_group[i + 1]));
  }
  EXPECT_EQ(s_debug_group[1], 0);
}

TEST_F(Logcat, TheFileIsThereForTheAppFromTheStart) {
  umask(077);
  const std::string file = "/data/misc/zelkalog/1#run/mobile/QZ201A-V1.02-main.txt";
  put(file, "of an earlier run");
  chmod(file.c_str(), 0600);
  catcher_logcat_log("main", "/data/misc/zelkalog/1#run/mobile", 1);
  logcats(1);
  EXPECT_EQ(mode_and_owner(file), "0666 1015:1015");
  EXPECT_EQ(get(file).find("of an earlier run"), std::string::npos);
}

class ReplacedLogcat : public Logcat {
 protected:
  void SetUp() override {
    Logcat::SetUp();
    setprop(kEnableProp, "on");
    s_debug_vesk_group[3].pid = kDead;
  }
  static constexpr pid_t kDead = 999999;
  static Texts replacement(const std::string& tag, const std::string& count) {
    const std::string file = "/data/misc/zelkalog/1#run/mobile/QZ201A-V1.02-" + tag + ".txt";
    // clang-format off
    return {"harrowmossd:debug-radio-vesk", "-v", "threadtime,usec", "-b", "radio", "-f", file,
            "-r", "102400", "-n", count};
    // clang-format on
  }
};

TEST_F(ReplacedLogcat, ClearsTheBufferTwiceAndWritesANewFile) {
  const Texts clear = {"vesk_clear", "-b", "radio", "-c"};
  setprop(kLogcatFileCountProp, "4");
  update_logcat_log(kDead);
  EXPECT_EQ(logcats(3), (std::vector<Texts>{clear, clear, replacement("radio_1", "4")}));
  EXPECT_EQ(s_debug_vesk_group[3].pid, kDead);  // until the stop
  const pid_t first = s_newlog_group[3].pid;
  EXPECT_EQ(getpgid(first), first);

  // A replacement that ends too is not replaced; a logcat of a later run is, with the next number.
  signal_one(first, SIGKILL);  // otherwise it creates its file again
  waitpid(first, nullptr, 0);
  update_logcat_log(first);
  s_debug_vesk_group[3].pid = kDead + 1;
  unlink("/data/misc/zelkalog/1#run/mobile/QZ201A-V1.02-radio_1.txt");
  setprop(kLogcatFileCountProp, "");
  update_logcat_log(kDead + 1);
  EXPECT_TRUE(eventually([&] { return logcats(6).back() == replacement("radio_2", "9"); }));
  EXPECT_EQ(s_newlog_group[3].count, 2);
  for (const int other : {0, 1, 2, 4, 5}) EXPECT_EQ(s_newlog_group[other].count, 0);
}

TEST_F(ReplacedLogcat, OtherChildrenAndAStoppedRunAreLeftAlone) {
  update_logcat_log(kDead + 1);
  for (const char* off : {"off", "", "On"}) {
    setprop(kEnableProp, off);
    update_logcat_log(kDead);
  }
  EXPECT_EQ(calls_of(kLogcat).size(), 0u);
  EXPECT_EQ(s_newlog_group[3].count, 0);
  EXPECT_EQ(logged("D update_logcat_log pid = 999999"), 3);
}

TEST_F(Logcat, SnapshotsOfTheLogDaemonsSettings) {
  const struct {
    void (*write)(const char*);
    const char *directory, *types, *expected;  // directory of the file, "" for none
  } rows[] = {
      {get_logcat_control_message, "/data/x1", "1", "/data/x1/"},
      {get_logcat_control_message, "/data/x 3/", "0", "/data/x\\ 3/"},
      {get_logcat_control_message, "", "1", ""},
      {get_logcat_control_message_for_debug, "/data/y1", "1", "/data/y1/mobile/"},
      {get_logcat_control_message_for_debug, "/data/y2/", "3", "/data/y2/mobile/"},
      {get_logcat_control_message_for_debug, "/data/y3", "2", ""},
      {get_logcat_control_message_for_debug, "", "1", ""},
  };
  for (const auto& row : rows) {
    setprop(kTypeProp, row.types);
    const size_t before = shell_commands().size();
    row.write(row.directory);
    std::string run;
    for (const std::string& command : texts_since(shell_commands(), before)) run += command + "\n";
    const std::string file = std::string(row.expected) + "logcat_control_message-STAMP.txt\n";
    EXPECT_EQ(std::regex_replace(run, std::regex(R"(\d\d-\d\d_\d\d-\d\d-\d\d)"), "STAMP"),
              *row.expected == '\0'
                  ? ""
                  : "/system/bin/logcat -p -g >> " + file + "/system/bin/logcat -S >> " + file)
        << row.directory;
  }
  EXPECT_NE(get("/data/x 3/" + list("/data/x 3")[0]), "");
}

}  // namespace
