#include "input/event_saver.h"

#include "tests/inphone/inphone.h"

namespace {

using namespace inphone;

constexpr int64_t kLimit = 10485760;
constexpr char kBase[] = "/data/touch/event";
constexpr int64_t kPiece = 1 << 20;

std::string generation(int number) {
  return std::string(kBase) + (number == 0 ? "" : "." + std::to_string(number)) + ".txt";
}

std::string opened(int64_t size) {
  return "E openLogFile:" + generation(0) + ".mOutByteCount = " + std::to_string(size) + "\n";
}

class EventSaverTest : public ::testing::Test {
 protected:
  EventSaverTest() : saver_(base_) {}
  void SetUp() override { ASSERT_EQ(mkdir("/data/touch", 0777), 0); }

  void write(int64_t bytes, char filler) {
    for (; bytes > kPiece; bytes -= kPiece) saver_.flushToFile(std::string(kPiece, filler).c_str());
    saver_.flushToFile(std::string(static_cast<size_t>(bytes), filler).c_str());
  }

  char base_[sizeof(kBase)] = "/data/touch/event";
  EventSaver saver_;
};

TEST_F(EventSaverTest, CreatesAPrivateFileAndAppends) {
  umask(0);
  saver_.openLogFile();
  EXPECT_EQ(android_log().back().tag, "");
  EXPECT_EQ(mode_and_owner(generation(0)), "0600 0:0");
  saver_.flushToFile("one ");
  put(generation(0), "two ");
  saver_.flushToFile("three");
  EXPECT_EQ(get(generation(0)), "two three");
}

TEST_F(EventSaverTest, RotatesAtTheFirstWriteAboveTheLimit) {
  const struct {
    int64_t before;  // in the file when it is opened
    int64_t write;
    bool rotated;
  } rows[] = {{0, kLimit, false},
              {0, kLimit + 1, true},
              {5, kLimit - 5, false},
              {kLimit, 1, true},
              {kLimit + 7, 0, true}};
  for (const auto& row : rows) {
    unlink(generation(1).c_str());
    put(generation(0), std::string(static_cast<size_t>(row.before), 'o'));
    EventSaver saver(base_);
    saver.openLogFile();
    EXPECT_EQ(log_texts().back(), opened(row.before));
    saver.flushToFile(std::string(static_cast<size_t>(row.write), 'n').c_str());
    const int64_t all = row.before + row.write;
    EXPECT_EQ(size_of(generation(0)), row.rotated ? 0 : all) << all;
    EXPECT_EQ(size_of(generation(1)), row.rotated ? all : -1) << all;
    if (row.rotated) {
      EXPECT_EQ(log_texts().back(), opened(0)) << all;
    }
    saver.closeLogFile();
  }
}

// The generations a, b, c... after each of eight rotations; no fourth is ever made.
TEST_F(EventSaverTest, KeepsThreeGenerations) {
  saver_.openLogFile();
  for (char filler = 'a'; filler <= 'h'; filler++) {
    write(kLimit + 1, filler);
    const int rotations = filler - 'a' + 1;
    EXPECT_EQ(size_of(generation(0)), 0);
    for (int number = 1; number <= 3; number++) {
      const std::string text = get(generation(number));
      const char expected = static_cast<char>(filler - number + 1);
      const size_t size = number <= rotations ? kLimit + 1 : 0;
      ASSERT_EQ(text.size(), size) << rotations << "." << number;
      EXPECT_EQ(text.find_first_not_of(expected), std::string::npos) << rotations << "." << number;
    }
    EXPECT_EQ(list("/data/touch").size(), static_cast<size_t>(std::min(rotations, 3)) + 1);
  }
  // Missing generations are not reported.
  EXPECT_EQ(logged("E rename err while rotating log files"), 0);
}

TEST_F(EventSaverTest, AFailedWriteTakesOneFromTheCount) {
  const int64_t size = kLimit - 4096;  // whole pages: a full disk takes no byte of a write
  put(generation(0), std::string(static_cast<size_t>(size), 'o'));
  saver_.openLogFile();
  fill_up_to("/data", 0);
  saver_.flushToFile(std::string(8000, 'x').c_str());
  EXPECT_EQ(size_of(generation(0)), size);
  unlink("/data/filler");
  write(4097, 'n');  // one byte above the limit
  EXPECT_EQ(size_of(generation(1)), -1);
  saver_.flushToFile("n");
  EXPECT_EQ(size_of(generation(1)), kLimit + 2);
}

TEST_F(EventSaverTest, ContinuesWhenAGenerationCannotBeRenamed) {
  saver_.openLogFile();
  write(kLimit + 1, 'a');
  ASSERT_EQ(mkdir(generation(2).c_str(), 0777), 0);
  write(kLimit + 1, 'b');
  EXPECT_EQ(logged("E rename err while rotating log files"), 1);
  EXPECT_EQ(get(generation(1)).front(), 'b');  // the live file has replaced the stuck one
}

TEST_F(EventSaverTest, ReportsAFailedOpenOnce) {
  saver_.openLogFile();
  ASSERT_EQ(rename("/data/touch", "/data/gone"), 0);
  EXPECT_LT(saver_.rotate(), 0);
  const Texts texts = log_texts();
  ASSERT_GE(texts.size(), 3u);
  EXPECT_EQ(texts[texts.size() - 2], opened(0));
  EXPECT_EQ(texts.back(), "E couldn't open output file");
  for (int i = 0; i < 3; i++) saver_.flushToFile("lost");
  EXPECT_EQ(log_texts().size(), texts.size());
  EXPECT_LT(saver_.openLogFile(), 0);
  EXPECT_EQ(log_texts().back(), opened(0));
  EXPECT_EQ(saver_.closeLogFile(), -1);
}

}  // namespace
