// The files of logcats that have ended.
#include "daemon/harrowmoss.h"
#include "debuglog/logcat.h"
#include "debuglog/run.h"
#include "selflog/logcat_file.h"
#include "selflog/props.h"
#include "storage/preallocation.h"
#include "storage/utils.h"
#include "tests/inphone/inphone.h"

namespace {

using namespace inphone;

constexpr char kMobile[] = "/data/misc/zelkalog/1#run/mobile/";

int64_t allocated(const std::string& path) {
  struct stat info = {};
  stat(path.c_str(), &info);
  return static_cast<int64_t>(info.st_blocks) * 512;
}

// A file with `text`, left by a logcat.
void leave(const std::string& path, const std::string& text) {
  put(path, text);
  const int fd = open(path.c_str(), O_WRONLY | O_CLOEXEC);
  EXPECT_EQ(fallocate(fd, FALLOC_FL_KEEP_SIZE, 0, 1 << 20), 0) << path;
  close(fd);
}

TEST(Preallocation, IsDetectedAndReleased) {
  const std::string run = kMobile, other = "/data/misc/zelkalog/0#run/mobile/";
  leave(run + "a.txt", "torn");
  leave(run + "b.txt", "");
  leave(other + "c.txt", std::string(4096, 'x'));
  leave("/data/elsewhere/d.txt", "x");
  leave("/data/misc/zelkalog/.logger/harrowmoss.txt", "x");
  ASSERT_EQ(symlink("/data/elsewhere/d.txt", (run + "link").c_str()), 0);
  ASSERT_EQ(mkfifo((run + "fifo").c_str(), 0666), 0);
  put("/data/misc/zelkalog/2#run/x", "");
  ASSERT_EQ(symlink("/data/elsewhere", "/data/misc/zelkalog/2#run/mobile"), 0);
  EXPECT_EQ(preallocated_by_captures(), 3 * (1 << 20) - 4 - 4096);
  give_back_preallocation();
  EXPECT_LT(preallocated_by_captures(), 4096);
  EXPECT_EQ(get(run + "a.txt"), "torn");
  EXPECT_EQ(allocated(run + "b.txt"), 0);
  EXPECT_EQ(allocated(other + "c.txt"), 4096);
  EXPECT_EQ(allocated("/data/misc/zelkalog/.logger/harrowmoss.txt"), 4096);
  EXPECT_EQ(allocated("/data/elsewhere/d.txt"), 1 << 20);
}

TEST(AwaitLogcat, KillsALogcatBeyondItsBound) {
  catch_sigchld();
  ParkedChild hanging, ended;
  EXPECT_EQ(await_logcat(hanging.pid(), 20, "clear", nullptr), 0);
  EXPECT_FALSE(is_running(hanging.pid()));
  EXPECT_EQ(
      logged("E logcat " + std::to_string(hanging.pid()) + " does not end in time, kill it: clear"),
      1);
  ended.release();
  EXPECT_EQ(await_logcat(ended.pid(), 20000, "clear", nullptr), ended.pid());
}

// A logcat for every buffer, with its files in the run.
class EndedLogcats : public ::testing::Test {
 protected:
  void SetUp() override {
    catch_sigchld();
    initialize_globals();
    setprop("bench.logcat.preallocate", "0");
    strcpy(s_log_dir_name, "1#run");
    strcpy(s_log_store_path, "/data/misc/zelkalog/1#run");
    ASSERT_EQ(creat_dir(kMobile), 0);
  }
  static void start_all() {
    for (const LogcatRow& row : s_debug_vesk_group) catcher_logcat_log(row.buffer, kMobile, 1);
  }
  static std::string file_of(const std::string& tag) {
    return kMobile + ("QZ201A-V1.02-" + tag + ".txt");
  }
  static void say(const char* buffer, const std::string& text) {
    ASSERT_GT(write_log_record(buffer, 4, "mark", text.data(), text.size()), 0);
  }
  static void end(const char* buffer, int sig) {
    for (const LogcatRow& row : s_debug_vesk_group) {
      if (strcmp(row.buffer, buffer) != 0) continue;
      signal_one(row.pid, sig);
      waitpid(row.pid, nullptr, 0);
    }
  }
  static std::vector<Texts> completions() {
    std::vector<Texts> found;
    for (const Texts& argv : calls_of(kLogcat)) {
      if (argv[0] == "vesk_complete") found.push_back(argv);
    }
    return found;
  }
};

TEST_F(EndedLogcats, AreCompletedOnceForEachRun) {
  s_extended_logcat_count = true;
  start_all();
  s_extended_logcat_count = false;  // as the stop does
  ASSERT_TRUE(eventually([] { return calls_of(kLogcat).size() == 6; }));
  for (const LogcatRow& row : s_debug_vesk_group) {
    say(row.buffer, "in time");
    end(row.buffer, SIGKILL);
  }
  put(file_of("events"), "--------- beginning of events\n01-01 00:00:00.000001 a torn li");
  put("/data/precious", "torn");
  unlink(file_of("crash").c_str());
  ASSERT_EQ(symlink("/data/precious", file_of("crash").c_str()), 0);
  unlink(file_of("radio").c_str());
  ASSERT_EQ(mkfifo(file_of("radio").c_str(), 0666), 0);
  unlink(file_of("system").c_str());
  complete_captures();
  for (const char* buffer : {"main", "events", "kernel"}) {
    const std::string text = get(file_of(buffer));
    EXPECT_NE(text.find("mark    : in time\n"), std::string::npos) << buffer;
    EXPECT_EQ(text.find("torn"), std::string::npos);
  }
  EXPECT_EQ(get("/data/precious"), "torn");
  EXPECT_FALSE(exists(file_of("system")));
  EXPECT_EQ(logged("E cannot complete " + file_of("crash") + ": " + strerror(ELOOP)), 1);
  EXPECT_EQ(logged("E cannot complete " + file_of("radio") + ": " + strerror(EINVAL)), 1);
  const std::vector<Texts> calls = completions();
  ASSERT_EQ(calls.size(), 3u);
  for (const Texts& argv : calls) {
    EXPECT_EQ(argv, (Texts{"vesk_complete", "-d", "-v", "threadtime,usec", "-b", argv[5], "-f",
                           file_of(argv[5]), "-r", "102400", "-n", "39"}));
  }
  complete_captures();
  EXPECT_EQ(completions().size(), 3u);
}

TEST_F(EndedLogcats, AreCompletedBeforeTheirBufferIsCleared) {
  setprop(kEnableProp, "on");
  start_all();
  ASSERT_TRUE(eventually([] { return calls_of(kLogcat).size() == 6; }));
  end("radio", SIGTERM);
  say("radio", "with nobody there");
  update_logcat_log(s_debug_vesk_group[3].pid);
  ASSERT_TRUE(eventually([] { return calls_of(kLogcat).size() == 10; }));
  EXPECT_EQ(calls_of(kLogcat)[6].front(), "vesk_complete");
  EXPECT_EQ(calls_of(kLogcat)[7].front(), "vesk_clear");
  EXPECT_NE(get(file_of("radio")).find("with nobody there"), std::string::npos);
  // At the stop the buffer belongs to the replacement's file.
  say("radio", "for the second file");
  signal_one(s_newlog_group[3].pid, SIGTERM);
  waitpid(s_newlog_group[3].pid, nullptr, 0);
  complete_captures();
  EXPECT_EQ(get(file_of("radio")).find("second file"), std::string::npos);
  EXPECT_NE(get(file_of("radio_1")).find("second file"), std::string::npos);
}

// The file system is full, or full except for the logcats' own blocks.
TEST_F(EndedLogcats, AreCompletedOneAfterTheOtherWhereRoomIsShort) {
  setprop("bench.logcat.preallocate", "1");
  start_all();
  ASSERT_TRUE(eventually([] { return calls_of(kLogcat).size() == 6; }));
  for (const LogcatRow& row : s_debug_vesk_group) {
    say(row.buffer, "in time");
    end(row.buffer, SIGTERM);
    truncate(file_of(row.buffer).c_str(), 0);
  }
  fill_up_to("/data", 64 * 4096);
  complete_captures();
  for (const LogcatRow& row : s_debug_vesk_group) {
    if (strcmp(row.buffer, "kernel") == 0) continue;  // the machine's own, of any length
    EXPECT_NE(get(file_of(row.buffer)).find("mark    : in time\n"), std::string::npos)
        << row.buffer;
    EXPECT_LT(allocated(file_of(row.buffer)), 16 * 4096) << row.buffer;
  }
  EXPECT_EQ(completions().size(), 6u);
}

}  // namespace
