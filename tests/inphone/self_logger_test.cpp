#include "selflog/self_logger.h"

#include <atomic>
#include <thread>

#include "selflog/log.h"
#include "tests/inphone/inphone.h"

namespace {

using namespace inphone;
using loggersystem::logger;

constexpr char kEnable[] = "persist.sys.logger.enable";
constexpr char kDatePattern[] = "%y-%m-%d %H:%M:%S";

class SelfLogger : public ::testing::Test {
 protected:
  void SetUp() override { setprop(kEnable, "on"); }
};

std::string own_ids() {
  return "[" + std::to_string(getpid()) + ", " + std::to_string(gettid()) + "] ";
}

std::string date_of(time_t when) {
  tm local = {};
  localtime_r(&when, &local);
  char text[32];
  strftime(text, sizeof(text), kDatePattern, &local);
  return text;
}

// Length of "YY-MM-DD hh:mm:ss || harrowmossd [pid, tid] ".
size_t prefix_length() {
  return date_of(0).size() + std::string(" || harrowmossd ").size() + own_ids().size();
}

// The text that one call appends to the file, without the prefix.
std::string appended(const char* fmt, const std::string& text) {
  const size_t before = get(kSelfLogFile).size();
  logger(fmt, text.c_str());
  const std::string line = get(kSelfLogFile).substr(before);
  return line.size() <= prefix_length() ? line : line.substr(prefix_length());
}

TEST_F(SelfLogger, ALineIsDateNameIdsAndMessage) {
  const time_t before = time(nullptr);
  logger("%s|%s|%d:: %s", "utils", "creat_dir", 42, "made it");
  const time_t after = time(nullptr);
  const std::string line = get(kSelfLogFile);
  const std::string rest = " || harrowmossd " + own_ids() + "utils|creat_dir|42:: made it\n";
  EXPECT_TRUE(line == date_of(before) + rest || line == date_of(after) + rest) << line;
}

TEST_F(SelfLogger, ANewlineIsAddedOnlyToALineThatHasNone) {
  const std::pair<const char*, const char*> rows[] = {
      {"plain", "plain\n"},
      {"its own\n", "its own\n"},
      {"in the\nmiddle", "in the\nmiddle"},
      {"\n", "\n"},
      {"", ""},  // the whole line is dropped
      {"100%", "100%\n"},
  };
  for (const auto& [message, written] : rows) EXPECT_EQ(appended("%s", message), written);
}

TEST_F(SelfLogger, CutsALineAt1023BytesWithItsNewline) {
  const size_t prefix = prefix_length();
  for (size_t length = 1021; length <= 1030; length++) {
    const std::string message(length - prefix, 'm');
    const std::string kept = message.substr(0, std::min<size_t>(length, 1022) - prefix);
    EXPECT_EQ(appended("%s", message), kept + "\n") << length;
    // Its final newline is cut off and appended again.
    const std::string ended = message.substr(1) + "\n";
    EXPECT_EQ(appended("%s", ended),
              ended.substr(0, std::min<size_t>(length, 1023) - prefix - 1) + "\n")
        << length;
    // An earlier newline stays the only one.
    const std::string split = "a\n" + message.substr(2);
    EXPECT_EQ(appended("%s", split), split.substr(0, std::min<size_t>(length, 1023) - prefix))
        << length;
  }
}

TEST(SelfLoggerSwitch, OnlyAValueThatBeginsWithOnWrites) {
  std::filesystem::remove_all("/data/misc/zelkalog");  // init has made it
  logger("%s", "unset");
  for (const char* off : {"off", "On", "", "1", "o"}) {
    setprop(kEnable, off);
    logger("%s", "off");
    EXPECT_FALSE(exists("/data/misc/zelkalog")) << off;
  }
  for (const char* on : {"on", "only"}) {
    setprop(kEnable, on);
    EXPECT_EQ(appended("%s", on), std::string(on) + "\n");
  }
  setprop(kEnable, "off");
  EXPECT_EQ(appended("%s", "off again"), "");
  setprop(kEnable, "on");
  EXPECT_EQ(appended("%s", "on again"), "on again\n");
}

TEST_F(SelfLogger, DirectoriesAre0777AndTheFileObeysTheUmask) {
  const std::string misc = mode_and_owner("/data/misc");
  std::filesystem::remove_all("/data/misc/zelkalog");
  umask(077);
  logger("%s", "first");
  EXPECT_EQ(mode_and_owner("/data/misc"), misc);
  EXPECT_EQ(mode_and_owner("/data/misc/zelkalog"), "0777 1015:1015");
  EXPECT_EQ(mode_and_owner(kSelfLogDir), "0777 1015:1015");
  EXPECT_EQ(logged("D logger_mkdir: /data/misc/zelkalog is not exist, creat it!"), 1);
  EXPECT_EQ(mode_and_owner(kSelfLogFile), "0700 0:0");
}

TEST_F(SelfLogger, ReportsFailedWritesInTheAndroidLogAndRetries) {
  std::filesystem::remove_all("/data/misc/zelkalog");
  put("/data/misc/zelkalog", "a file in its place");
  for (const char* text : {"one", "two"}) logger("%s", text);
  EXPECT_EQ(logged(std::string("D logger, cannot create file:") + kSelfLogDir), 2);
  EXPECT_EQ(logged("D logger_mkdir: mkdir fail! Not a directory"), 2);
  unlink("/data/misc/zelkalog");
  std::filesystem::create_directories(kSelfLogFile);
  logger("%s", "three");
  EXPECT_EQ(logged(std::string("D logger, open file failed.:") + kSelfLogFile), 1);
  rmdir(kSelfLogFile);
  EXPECT_EQ(appended("%s", "four"), "four\n");
}

TEST_F(SelfLogger, EachMessageGoesToBothLogs) {
  logger("%s", "opens the file, which is told in the Android log");
  for (const auto& [priority, message] :
       {std::pair{ANDROID_LOG_VERBOSE, "ends\n"}, std::pair{ANDROID_LOG_ERROR, "e 100%"}}) {
    const size_t before = get(kSelfLogFile).size();
    const size_t records = android_log().size();
    errno = ENOTTY;
    log_message(priority, "commands", "start_debug_log", 7, "%s", message);
    EXPECT_EQ(errno, ENOTTY);
    const std::vector<LogLine> lines = android_log();
    ASSERT_EQ(lines.size(), records + 1);
    EXPECT_EQ(lines.back().priority, priority);
    EXPECT_EQ(lines.back().tag, "harrowmossd");
    EXPECT_EQ(lines.back().message,
              "commands|start_debug_log|7~" + std::to_string(getppid()) + ":: " + message);
    const std::string text = message;
    EXPECT_EQ(get(kSelfLogFile).substr(before + prefix_length()),
              "commands|start_debug_log|7:: " + text + (text.back() == '\n' ? "" : "\n"));
  }
}

// Forks children while another thread is in the middle of a line.
TEST_F(SelfLogger, ChildrenForkedDuringALogCallNeverHang) {
  std::atomic<bool> stop{false};
  std::thread busy([&stop] {
    while (!stop) log_message(ANDROID_LOG_DEBUG, "utils", "busy", 1, "a line %d", 1);
  });
  // With a lock in a line, 1 of 43 children hung: the least count finds that, too, on a busy
  // machine.
  constexpr int kForks = 2000, kFewestForks = 200;
  const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  int forked = 0, ended_well = 0;
  const auto goes_on = [&] {
    return forked < kFewestForks || (forked < kForks && std::chrono::steady_clock::now() < until);
  };
  for (; goes_on(); forked++) {
    const pid_t child = fork_process(Group::kInherit);
    if (child == 0) {
      alarm(20);  // ends a child that hangs
      log_message(ANDROID_LOG_DEBUG, "utils", "child", 1, "a line %d", forked);
      _exit(0);
    }
    int status = -1;
    wait_for(child, &status);
    ended_well += status == 0 ? 1 : 0;
  }
  stop = true;
  busy.join();
  EXPECT_EQ(ended_well, forked);
}

}  // namespace
