#include <functional>

#include "model/data_room.h"
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

// Escaping itself is tested with the shell; here, that every utility does it.
TEST(Utilities, HostileNamesAffectOnlyTheirOwnDirectory) {
  using Utility = std::function<int(const char* dst)>;
  const std::pair<Utility, const char*> utilities[] = {
      // with the place of "f" below `dst`
      {[](const char* dst) { return copy_file("/data/src/f", dst); }, ""},
      {[](const char* dst) { return copy_dir("/data/src", dst); }, "/f"},
      {[](const char* dst) { return copy_dir2("/data/src", dst); }, "/f"},
      {[](const char* dst) { return move_dir("/data/src", dst, nullptr); }, "/src/f"},
  };
  std::filesystem::create_directories("/data/h");
  ASSERT_EQ(chdir("/data/h"), 0);
  for (const auto& [run, place] : utilities) {
    for (const char* name : {"a;touch x", "* $(touch x)", "caf\xc3\xa9 \x01"}) {
      put("/data/src/f", name);
      put("/data/h/decoy/file", "kept");
      const std::string dst = std::string("/data/h/") + name;
      EXPECT_EQ(run(dst.c_str()), 0) << place << " " << name;
      EXPECT_EQ(get(dst + place), name) << place;
      EXPECT_EQ(delete_dir(dst.c_str()), 0);
      EXPECT_EQ(list("/data/h"), Texts{"decoy"}) << place << " " << name;
      EXPECT_EQ(list("/data/h/decoy"), Texts{"file"}) << place << " " << name;
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
  EXPECT_EQ(move_dir("/data/f", nullptr, nullptr), -1);
  EXPECT_EQ(delete_dir(bad), -1);
  EXPECT_EQ(shell_commands(), Texts{});
}

// The longest names that each utility takes for a source, with a 20-byte destination.
TEST(UtilitiesDeathTest, ACommandOf255BytesIsTheLongest) {
  const std::string dst = "/data/" + std::string(14, 'd');
  const struct {
    ShellCommand which;
    size_t fixed;  // bytes of the command without the names
    size_t dst_times;
    std::function<void(const char* src)> run;
  } rows[] = {
      {ShellCommand::kCopyFile, strlen("cp  "), 1,
       [&](const char* src) { copy_file(src, dst.c_str()); }},
      {ShellCommand::kCopyDir, strlen("cp -a  ; chmod -R 777 "), 2,
       [&](const char* src) { copy_dir(src, dst.c_str()); }},
      {ShellCommand::kCopyDir2, strlen("cp -a   ; chmod -R 777 "), 2,
       [&](const char* src) { copy_dir2(src, dst.c_str()); }},
      {ShellCommand::kMoveDir, strlen("mv    ; chmod -R 777 "), 2,
       [&](const char* src) { move_dir(src, dst.c_str(), nullptr); }},
      {ShellCommand::kDeleteDir, strlen("rm -rf "), 0, [](const char* src) { delete_dir(src); }},
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

TEST(Utilities, AFewNamesTakeOneCommand) {
  replace_program("cp", "echo cp >> /data/runs; exec /system/bin/toybox cp \"$@\"");
  for (const char* name : {"/data/s/a", "/data/s/b"}) put(name, name);
  std::filesystem::create_directories("/data/d");
  EXPECT_EQ(copy_dir("/data/s/*", "/data/d"), 0);
  EXPECT_EQ(list("/data/d"), (Texts{"a", "b"}));
  EXPECT_EQ(get("/data/runs"), "cp\n");
}

// Longer than the kernel accepts: the shell cannot start the command, and nothing reports it.
TEST(Utilities, ManyNamesAreSplitIntoBatches) {
  become_main_process();
  constexpr size_t kNames = 20000;
  const std::string from = "/data/local/traces/", tail(100, 'x'), to = "/sdcard/zelkalog/traces";
  std::filesystem::create_directories(from);
  for (size_t i = 0; i < kNames; i++) std::ofstream(from + std::to_string(i) + tail) << i;
  std::filesystem::create_directories("/data/copy");
  EXPECT_EQ(copy_dir("/data/local/traces/*", "/data/copy"), 0);
  EXPECT_EQ(list("/data/copy").size(), kNames);
  EXPECT_EQ(move_dir("/data/local/traces/*", to.c_str(), nullptr), 0);
  EXPECT_EQ(list(from), Texts{});
  EXPECT_EQ(list(to).size(), kNames);
  EXPECT_EQ(get(to + "/19999" + tail), "19999");
  EXPECT_EQ(mode_and_owner(to + "/19999" + tail).substr(0, 4), "0777");
  EXPECT_EQ(delete_dir("/data/copy/*"), 0);
  EXPECT_EQ(list("/data/copy"), Texts{});
  EXPECT_EQ(shell_commands(),
            (Texts{
                "cp -a /data/local/traces/* /data/copy; chmod -R 777 /data/copy",
                "mv  /data/local/traces/* /sdcard/zelkalog/traces ; chmod -R 777 " + to,
                "rm -rf /data/copy/*",
            }));
}

TEST(Utilities, ACopyLeavesRoomOnData) {
  const struct {
    const char* what;
    std::function<int()> copy;
    int left_out;  // the result then
    const char* target;
    const char* place;
    bool one_pool;
  } rows[] = {
      {"cp", [] { return copy_file("/cache/s/f", "/data/f"); }, -1, "/data/f", "/data/f", false},
      {"cp -a", [] { return copy_dir("/cache/s", "/data/a"); }, -1, "/data/a", "/data/a/f", false},
      {"of a pattern", [] { return copy_dir("/cache/s/*", "/data"); }, -1, "/data", "/data/f",
       false},
      {"by lines", [] { return copy_dir2("/cache/s", "/data/b"); }, 0, "/data/b", "/data/b/f",
       false},
      {"to shared storage in one pool", [] { return copy_dir2("/cache/s", "/sdcard/b"); }, 0,
       "/sdcard/b", "/sdcard/b/f", true},
  };
  put_bytes("/cache/s/f", 100 * kBlock);
  fill_up_to("/data", kBlock);
  EXPECT_EQ(copy_dir2("/cache/s", "/sdcard/b"), 0);  // another directory
  EXPECT_TRUE(exists("/sdcard/b/f"));
  unlink("/data/filler");
  for (const auto& row : rows) {
    if (row.one_pool) make_one_pool();
    for (const int64_t blocks : {100, 103}) {  // the file and its directory take 103 at most
      fill_up_to("/data", kDataReserve + blocks * kBlock);
      const long before = logged_beginning(std::string("E no room to copy /cache/s"));
      EXPECT_EQ(row.copy(), blocks == 100 ? row.left_out : 0) << row.what;
      EXPECT_EQ(exists(row.place), blocks == 103) << row.what;
      EXPECT_EQ(logged_beginning("E no room to copy /cache/s") - before, blocks == 100) << row.what;
      unlink("/data/filler");
    }
    std::filesystem::remove_all(row.place);
  }
}

// mv removes its source even when the target fills up meanwhile: a whole run would be lost.
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

TEST_F(MoveAcross, NeedsRoomForAllOfIt) {
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

TEST_F(MoveAcross, TheOldestRunsThatFitAreMovedByNumber) {
  std::filesystem::remove_all("/data/misc/zelkalog/run");
  for (const char* run : {"10#a", "9#b", "100#c", "8#big"})
    put_bytes(std::string("/data/misc/zelkalog/") + run + "/log",
              *run == '8' ? 99 * kBlock : kBlock);
  // The measure of a run allows for overhead: it takes one block.
  fill_up_to("/sdcard", space_needed("/data/misc/zelkalog/9#b", kBlock) + kBlock);
  EXPECT_EQ(move_dir(kPattern, "/sdcard/zelkalog/", "-f"), -1);
  EXPECT_EQ(list("/sdcard/zelkalog"), (Texts{"10#a", "9#b"}));
  EXPECT_EQ(list("/data/misc/zelkalog").size(), 3u);  // the big run, the newest, the self log
  EXPECT_TRUE(exists("/data/misc/zelkalog/8#big/log") && exists("/data/misc/zelkalog/100#c/log"));
}

TEST_F(MoveAcross, HappensWhenItJustFits) {
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
