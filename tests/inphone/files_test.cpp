#include <sys/time.h>

#include <memory>

#include "storage/utils.h"
#include "tests/inphone/inphone.h"

namespace {

using namespace inphone;

constexpr char kShared[] = "0777 1015:1015";
const auto kAborted = ::testing::KilledBySignal(SIGABRT);

TEST(CreatDir, CreatesMissingParentsWithMode0777) {
  umask(077);
  mkdir("/data/old", 0700);
  put("/data/file", "x");
  for (const char* path : {"/data/x/y/z", "/data/old/new/", "/sdcard/zelkalog/1#run"}) {
    EXPECT_EQ(creat_dir(path), 0) << path;
    EXPECT_EQ(mode_and_owner(path), kShared) << path;
  }
  for (const char* parent : {"/data/x", "/data/x/y", "/sdcard/zelkalog"})
    EXPECT_EQ(mode_and_owner(parent), kShared) << parent;
  EXPECT_EQ(creat_dir("/data/old"), 0);
  EXPECT_EQ(mode_and_owner("/data/old"), "0700 0:0");  // existing directories are unchanged
  for (const char* path : {"/data/file/below", "/proc/nothing"})
    EXPECT_EQ(creat_dir(path), -1) << path;
  EXPECT_EQ(creat_dir(nullptr), -1);
}

TEST(CreatDirDeathTest, APathThatDoesNotFitAborts) {
  const std::string path = "/data/" + std::string(248, 'x');  // 254 bytes, 255 with its slash
  EXPECT_EQ(creat_dir(path.c_str()), 0);
  EXPECT_EXIT(creat_dir((path + "x").c_str()), kAborted, "");
  EXPECT_EXIT(creat_dir((path + "/y").c_str()), kAborted, "");
}

TEST(CreatDir, CreatesNothingWhileSharedStorageIsReadOnly) {
  setprop("vold.mounted", "0");
  make_sdcard_read_only();
  EXPECT_EQ(creat_dir("/sdcard/zelkalog/run"), -1);
  EXPECT_EQ(logged("D sdcard cannot access. sdcard_prop = 0"), 1);
  EXPECT_EQ(list("/data/media/0"), Texts{});
  EXPECT_EQ(creat_dir("/data/misc/zelkalog/run"), 0);  // not on shared storage
  EXPECT_EQ(logged("D data access W ok. sdcard_prop = 0"), 1);
}

TEST(CreatDir, NeverCreatesTheMountPoint) {
  remove_sdcard();
  for (const char* mounted : {"1", "0", ""}) {
    setprop("vold.mounted", mounted);
    EXPECT_EQ(creat_dir("/sdcard/zelkalog"), -1);
    EXPECT_FALSE(exists("/sdcard"));
  }
}

TEST(MkdirS, FallsBackToTheSameStorageThroughTheDataPartition) {
  EXPECT_EQ(mkdir_s("/sdcard/zelkalog/direct"), 1);
  for (const char* mounted : {"1", "0"}) {
    setprop("vold.mounted", mounted);
    if (mounted[0] == '1') make_sdcard_read_only();
    const std::string name = std::string("run ") + mounted + "/sub";
    EXPECT_EQ(mkdir_s(("/sdcard/zelkalog/" + name).c_str()), 1);
    EXPECT_EQ(mode_and_owner("/data/media/0/zelkalog/" + name), kShared);
  }
}

TEST(MkdirS, ReportsFailures) {
  make_sdcard_read_only();
  EXPECT_EQ(mkdir_s(nullptr), 0);
  EXPECT_EQ(mkdir_s("/sdcard/other/run"), 0);  // only runs are searched on the data partition
  EXPECT_EQ(logged("W failed to mkdir /sdcard/other/run: 30(Read-only file system)"), 1);
  EXPECT_EQ(list("/data/media/0"), Texts{});
}

TEST(CreatFile, IsEmptyWithMode0666) {
  umask(077);
  put("/data/old", "text");
  chmod("/data/old", 0400);
  for (const char* path : {"/data/new", "/data/old"}) {
    EXPECT_EQ(creat_file(path), 0) << path;
    EXPECT_EQ(mode_and_owner(path), "0666 1015:1015") << path;
    EXPECT_EQ(get(path), "") << path;
  }
}

TEST(CheckDirPrefixAccess, NeedsThePrefixAndAWritableDirectory) {
  put("/data/file", "");
  const struct {
    const char *path, *prefix;
    int expected;
    // clang-format off
  } rows[] = {
      {"/data/x", "/data", 1}, {"/database", "/data", 1}, {"/sdcard/x", "/data", 0},
      {"/data/none/x", "/data/none", 0}, {"/data/file/x", "/data/file", 0},
      {"/system/x", "/system", 0}};  // read-only
  // clang-format on
  for (const auto& row : rows)
    EXPECT_EQ(checkDirPrefixAccess(row.path, row.prefix), row.expected) << row.path;
  EXPECT_EQ(logged("D /system access R ok."), 1);
  EXPECT_EQ(logged("D /system access W ok."), 0);
  EXPECT_EQ(logged("D /data access W ok."), 2);
}

TEST(GetFileName, StartsAfterTheLastSeparatorOfEitherKind) {
  for (const auto& [path, name] : {std::pair{"/a/b.txt", "b.txt"}, std::pair{"b", "b"},
                                   std::pair{"/a/", ""}, std::pair{"/a\\b", "b"}})
    EXPECT_STREQ(get_file_name(path), name);
  EXPECT_EQ(get_file_name(nullptr), nullptr);
}

void put_at(const std::string& path, time_t modified) {
  put(path, "x");
  const timeval times[2] = {{modified, 0}, {modified, 0}};
  ASSERT_EQ(utimes(path.c_str(), times), 0);
}

TEST(GetLatestFile, IsTheNewestThatContainsTheNeedle) {
  put_at("/data/d/anr_1", 100);
  put_at("/data/d/anr_3", 300);
  put_at("/data/d/traces_2_anr", 400);
  put_at("/data/d/newest", 500);
  put_at("/data/d/epoch_only", 0);
  ASSERT_EQ(symlink("/missing", "/data/d/anr_dangling"), 0);
  const std::pair<const char*, const char*> rows[] = {{"anr_", "/data/d/anr_3"},
                                                      {"anr", "/data/d/traces_2_anr"},
                                                      {"", "/data/d/newest"},
                                                      {"tombstone", ""},
                                                      {"epoch", ""},  // never later than the start
                                                      {".", ""}};
  for (const auto& [needle, found] : rows) {
    const std::unique_ptr<char[]> latest(getLatestFile("/data/d/", needle));
    ASSERT_NE(latest, nullptr);
    EXPECT_STREQ(latest.get(), found) << needle;
  }
  EXPECT_EQ(getLatestFile("/data/none/", "x"), nullptr);
  EXPECT_GE(logged("E stat /data/d/anr_dangling file error: No such file or directory\n"), 1);
}

}  // namespace
