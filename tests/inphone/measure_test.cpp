#include "storage/measure.h"

#include "storage/utils.h"
#include "tests/inphone/inphone.h"

namespace {

using namespace inphone;

constexpr char kTree[] = "/data/tree";

std::string tree(const std::string& rest) {
  return std::string(kTree) + "/" + rest;
}

class Measure : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(mkdir(kTree, 0777), 0); }
};

TEST_F(Measure, LinksCountAsTheirTargets) {
  put("/data/elsewhere/big", std::string(5000, 'x'));
  ASSERT_EQ(symlink("/data/elsewhere/big", tree("file").c_str()), 0);
  for (const char* link : {"dir", "again"})  // counted once
    ASSERT_EQ(symlink("/data/elsewhere", tree(link).c_str()), 0);
  ASSERT_EQ(symlink("/missing", tree("dangling").c_str()), 0);
  EXPECT_EQ(getFileSize(kTree), size_of(kTree) + 5000 + size_of("/data/elsewhere") + 5000);
  EXPECT_EQ(getFileSize("/data/none"), 0);
  EXPECT_EQ(logged("E cannot open directory /data/tree/dangling: No such file or directory\n"), 1);
}

// Following links would recurse endlessly in each of these.
TEST_F(Measure, ADirectoryThatContainsItselfCountsOnce) {
  put(tree("d/e/file"), std::string(100, 'x'));
  const int64_t without = getFileSize(kTree);
  const int64_t names = size_of(tree("d/e"));
  for (const char* link : {"d/e/self", "d/e/again"}) ASSERT_EQ(symlink(".", tree(link).c_str()), 0);
  ASSERT_EQ(symlink("../..", tree("d/e/ancestor").c_str()), 0);
  ASSERT_EQ(symlink(kTree, tree("d/e/root").c_str()), 0);
  EXPECT_EQ(getFileSize(kTree), without + size_of(tree("d/e")) - names);
}

// More levels, and more directories on one level, than descriptors.
TEST_F(Measure, NeedsNoDescriptorPerDirectory) {
  int64_t expected = 0;
  std::string deep = tree("deep");
  for (int level = 0; level < 100; level++) deep += "/d";
  put(deep + "/.hidden", "1234567");
  for (std::string at = deep; at != kTree; at.resize(at.rfind('/'))) expected += size_of(at);
  for (int i = 0; i < 100; i++) {
    put(tree("wide/" + std::to_string(i) + "/file"), "12345");
    expected += 5 + size_of(tree("wide/" + std::to_string(i)));
  }
  const rlimit few = {32, 32};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
  EXPECT_EQ(getFileSize(kTree), expected + 7 + size_of(kTree) + size_of(tree("wide")));
}

TEST_F(Measure, FilesystemSizeIsWhatUnprivilegedUsersMayUse) {
  EXPECT_EQ(get_filesystem_size(nullptr), -1);
  EXPECT_EQ(get_filesystem_size("/data/none"), -2);
  EXPECT_EQ(get_filesystem_size("/proc"), -2);  // no blocks
  const int64_t before = get_filesystem_size("/sdcard");
  EXPECT_EQ(before, available("/sdcard"));
  put_bytes("/sdcard/file", 1 << 20);
  EXPECT_EQ(get_filesystem_size("/sdcard"), before - (1 << 20));
  EXPECT_EQ(log_texts(), (Texts{"E Failed to get storage size with null path",
                                "E Failed to get /data/none storage size",
                                "E Failed to get /proc storage size"}));
}

TEST_F(Measure, SpaceNeededIsWholeBlocksAndOneForEachEntry) {
  put_bytes(tree("one"), 1);
  put_bytes(tree("full"), 4096);
  put_bytes(tree(".hidden"), 4097);
  ASSERT_EQ(symlink("/data/elsewhere", tree("link").c_str()), 0);
  put_bytes("/data/elsewhere/huge", 1 << 20);
  const int64_t block = 4096;
  const std::pair<std::string, int64_t> rows[] = {
      {tree("one"), 2},
      {tree("full"), 2},
      {tree(".hidden"), 3},
      {tree("link"), 2},  // moved as a link
      {tree("none"), 0},
      {tree("*"), 2 + 2 + 2},  // the shell's pattern leaves hidden ones
                               // out
      {kTree, 2 + 2 + 2 + 3 + 2},
  };
  for (const auto& [source, blocks] : rows)
    EXPECT_EQ(space_needed(source.c_str(), block), blocks * block) << source;
  // Without a free descriptor a directory cannot be measured: the result must not be too small.
  const NoDescriptors none;
  EXPECT_EQ(space_needed(kTree, block), kSpaceUnknown);
}

}  // namespace
