#include <functional>

#include "storage/measure.h"
#include "storage/utils.h"
#include "tests/inphone/inphone.h"

namespace {

using namespace inphone;

const auto kAborted = ::testing::KilledBySignal(SIGABRT);
constexpr int64_t kBlock = 4096;

TEST(Utilities, RunExactlyTheseCommands) {
  put("/data/f", "x");
  for (const char* dir : {"/data/s", "/data/d", "/sdcard/zelkalog"}) mkdir(dir, 0755);
  copy_file("/data/f", "/data/d/f");
  copy_dir("/data/s", "/data/d");
  EXPECT_EQ(copy_dir2("/data/s", "/data/d"), 0);
  move_dir("/data/f", "/data/d", nullptr);
  move_dir("/data/d/f", "/data/s", "-f");
  move_dir("/data/s/*", "/data/d", "");
  delete_dir("/data/d/*");
  delete_dir("/data/d");
  EXPECT_EQ(shell_commands(), (Texts{
                                  "cp /data/f /data/d/f",
                                  "cp -a /data/s /data/d; chmod -R 777 /data/d",
                                  "cp -a /data/s /data/d ; chmod -R 777 /data/d",
                                  "mv  /data/f /data/d ; chmod -R 777 /data/d",
                                  "mv -f /data/d/f /data/s ; chmod -R 777 /data/s",
                                  "mv  /data/s/* /data/d ; chmod -R 777 /data/d",
                                  "rm -rf /data/d/*",
                                  "rm -rf /data/d",
                              }));
  EXPECT_EQ(calls_of("/system/bin/sh")[0][0], "sh");
  EXPECT_FALSE(exists("/data/d"));
}

TEST(Utilities, ResultsAreTheShellsStatus) {
  put("/data/f", "x");
  EXPECT_EQ(copy_file("/data/f", "/data/g"), 0);
  EXPECT_EQ(WEXITSTATUS(copy_file("/data/none", "/data/h")), 1);
  EXPECT_EQ(WEXITSTATUS(copy_file("/data/f", "/data/none/h")), 1);
  EXPECT_EQ(delete_dir("/data/none"), 0);
  EXPECT_EQ(copy_dir2("/data/none", "/data/i"), 0);  // the copy's own failure is only logged
  EXPECT_EQ(move_dir("/data/f", "/data/made", nullptr), 0);
  EXPECT_EQ(log_texts().back().rfind("D /data/f -> /data/made, ret=0(", 0), 0u);
}

TEST(Utilities, APatternIsExpandedOnlyInASource) {
  for (const char* file : {"/data/s/a", "/data/s/b", "/data/s/.hidden"}) put(file, "x");
  mkdir("/data/d", 0755);
  copy_dir("/data/s/*", "/data/d");
  EXPECT_EQ(list("/data/d"), (Texts{"a", "b"}));
  delete_dir("/data/s/*");
  EXPECT_EQ(list("/data/s"), Texts{".hidden"});
}

// Names that mean something to a shell. Each is used as the last component of a destination, with
// a decoy beside it that any expansion would touch.
constexpr const char* kHostileNames[] = {
    "a b",      " ",  "a;touch x", "$(touch x)", "`touch x`", "$HOME", "a'b",  "a\"b",
    "*",        "?",  "[a-z]*",    "{a,b}",      "~",         "a|b",   "a&b",  "<x>",
    "(x)",      "!x", "#x",        "a\\b",       "a\\",       "a\tb",  "a\rb", "caf\xc3\xa9",
    "\x01\x7f", "=x", "x=y",       "1#;touch x", "^",         "%s",
};

struct utility {
  const char* name;
  // Fills the destination, which does not exist, from /data/src, which holds "f".
  std::function<int(const char* dst)> run;
  const char* result;  // the path of "f" below the destination
};

TEST(Utilities, HostileNamesReachExactlyTheirOwnDirectory) {
  const utility utilities[] = {
      {"copy_file", [](const char* dst) { return copy_file("/data/src/f", dst); }, ""},
      {"copy_dir", [](const char* dst) { return copy_dir("/data/src", dst); }, "/f"},
      {"copy_dir2", [](const char* dst) { return copy_dir2("/data/src", dst); }, "/f"},
      {"move_dir", [](const char* dst) { return move_dir("/data/src", dst, nullptr); }, "/src/f"},
  };
  std::filesystem::create_directories("/data/cwd");
  ASSERT_EQ(chdir("/data/cwd"), 0);
  for (const utility& each : utilities) {
    for (const char* name : kHostileNames) {
      put("/data/src/f", name);
      std::filesystem::create_directories("/data/h/decoy");
      chmod("/data/h/decoy", 0700);
      const std::string dst = std::string("/data/h/") + name;
      EXPECT_EQ(each.run(dst.c_str()), 0) << each.name << " " << name;
      Texts expected = {"decoy", name};
      std::sort(expected.begin(), expected.end());
      EXPECT_EQ(list("/data/h"), expected) << each.name;
      EXPECT_EQ(get(dst + each.result), name) << each.name;
      EXPECT_EQ(list("/data/h/decoy"), Texts{}) << each.name << " " << name;
      EXPECT_EQ(mode_and_owner("/data/h/decoy"), "0700 0:0") << each.name << " " << name;
      if (strcmp(name, "*") != 0) {  // as a source that is the pattern
        EXPECT_EQ(delete_dir(dst.c_str()), 0);
        EXPECT_EQ(list("/data/h"), Texts{"decoy"}) << "rm " << name;
      }
      std::filesystem::remove_all("/data/h");
      EXPECT_EQ(list("/data/cwd"), Texts{}) << each.name << " " << name;
    }
  }
}

TEST(Utilities, ANewlineIsRefusedBeforeAnythingRuns) {
  put("/data/f", "x");
  const char bad[] = "/data/a\ntouch b";
  EXPECT_EQ(copy_file(bad, "/data/g"), -1);
  EXPECT_EQ(copy_file("/data/f", bad), -1);
  EXPECT_EQ(copy_dir("/data/f", bad), -1);
  EXPECT_EQ(copy_dir2("/data/f", bad), -1);
  EXPECT_EQ(move_dir(bad, "/data/d", nullptr), -1);
  EXPECT_EQ(delete_dir(bad), -1);
  EXPECT_EQ(shell_commands(), Texts{});
}

// The longest names that each utility takes for a source, with a 20-byte destination.
TEST(UtilitiesDeathTest, ACommandOf255BytesIsTheLongest) {
  const std::string dst = "/data/" + std::string(14, 'd');
  const struct {
    shell_command which;
    size_t fixed;  // bytes of the command without the names
    size_t dst_times;
    std::function<void(const char* src)> run;
  } rows[] = {
      {shell_command::copy_file, strlen("cp  "), 1,
       [&](const char* src) { copy_file(src, dst.c_str()); }},
      {shell_command::copy_dir, strlen("cp -a  ; chmod -R 777 "), 2,
       [&](const char* src) { copy_dir(src, dst.c_str()); }},
      {shell_command::copy_dir2, strlen("cp -a   ; chmod -R 777 "), 2,
       [&](const char* src) { copy_dir2(src, dst.c_str()); }},
      {shell_command::move_dir, strlen("mv    ; chmod -R 777 "), 2,
       [&](const char* src) { move_dir(src, dst.c_str(), nullptr); }},
      {shell_command::delete_dir, strlen("rm -rf "), 0, [](const char* src) { delete_dir(src); }},
  };
  for (const auto& row : rows) {
    const size_t room = 255 - row.fixed - row.dst_times * dst.size();
    const char* const target = row.dst_times == 0 ? nullptr : dst.c_str();
    const std::string longest(room, 's');
    EXPECT_TRUE(command_fits(row.which, longest.c_str(), target));
    row.run(longest.c_str());
    EXPECT_EQ(shell_commands().back().size(), 255u);
    EXPECT_FALSE(command_fits(row.which, (longest + "s").c_str(), target));
    EXPECT_EXIT(row.run((longest + "s").c_str()), kAborted, "");
    // What counts is the escaped text.
    const std::string blanks(room / 2 + 1, ' ');
    EXPECT_FALSE(command_fits(row.which, blanks.c_str(), target));
    EXPECT_FALSE(command_fits(row.which, "a\nb", target));
  }
}

TEST(MoveDir, NeedsADestination) {
  put("/data/f", "x");
  EXPECT_EQ(move_dir("/data/f", nullptr, nullptr), -1);
  EXPECT_EQ(logged("D dest is null"), 1);
  EXPECT_EQ(shell_commands(), Texts{});
}

TEST(MoveDir, MakesTheDestinationAndGivesItToEverybody) {
  umask(077);
  put("/data/misc/zelkalog/run/main.txt", "log");
  EXPECT_EQ(move_dir("/data/misc/zelkalog/run", "/sdcard/zelkalog/", nullptr), 0);
  EXPECT_EQ(mode_and_owner("/sdcard/zelkalog"), "0777 1015:1015");
  EXPECT_EQ(mode_and_owner("/sdcard/zelkalog/run/main.txt").substr(0, 4), "0777");
  EXPECT_EQ(get("/sdcard/zelkalog/run/main.txt"), "log");
  EXPECT_FALSE(exists("/data/misc/zelkalog/run"));
}

// mv removes its source even when the target filled up on the way: a whole run would be lost.
class MoveAcross : public ::testing::Test {
 protected:
  void SetUp() override {
    put_bytes("/data/misc/zelkalog/run/a", 10 * kBlock + 1);
    put("/data/misc/zelkalog/run/sub/b", "last");
    ASSERT_EQ(creat_dir("/sdcard/zelkalog"), 0);
  }
  static constexpr char kPattern[] = "/data/misc/zelkalog/*";
  static int64_t size_of_run() { return getFileSize("/data/misc/zelkalog/run/a"); }
};

TEST_F(MoveAcross, IsNotBegunWithoutRoomForAllOfIt) {
  const int64_t needed = space_needed(kPattern, kBlock);
  fill_up_to("/sdcard", needed - kBlock);
  EXPECT_EQ(move_dir(kPattern, "/sdcard/zelkalog/", "-f"), -1);
  EXPECT_EQ(shell_commands(), Texts{});
  EXPECT_EQ(size_of_run(), 10 * kBlock + 1);
  EXPECT_EQ(get("/data/misc/zelkalog/run/sub/b"), "last");
  EXPECT_EQ(list("/sdcard/zelkalog"), Texts{});
  EXPECT_EQ(logged("E no room to move /data/misc/zelkalog/* to /sdcard/zelkalog/: " +
                   std::to_string(needed) + " bytes needed, " + std::to_string(needed - kBlock) +
                   " free"),
            1);
}

TEST_F(MoveAcross, IsDoneWhenItJustFits) {
  fill_up_to("/sdcard", space_needed(kPattern, kBlock));
  EXPECT_EQ(move_dir(kPattern, "/sdcard/zelkalog/", "-f"), 0);
  EXPECT_EQ(get("/sdcard/zelkalog/run/sub/b"), "last");
  EXPECT_EQ(getFileSize("/sdcard/zelkalog/run/a"), 10 * kBlock + 1);
  EXPECT_FALSE(exists("/data/misc/zelkalog/run"));
}

TEST_F(MoveAcross, WithinOneFilesystemNeedsNoRoom) {
  put_bytes("/sdcard/from/big", 100 * kBlock);
  fill_up_to("/sdcard", 0);
  EXPECT_EQ(move_dir("/sdcard/from", "/sdcard/zelkalog", nullptr), 0);
  EXPECT_EQ(getFileSize("/sdcard/zelkalog/from/big"), 100 * kBlock);
}

}  // namespace
