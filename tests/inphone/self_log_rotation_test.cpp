#include "selflog/self_logger.h"
#include "tests/inphone/inphone.h"

namespace {

using namespace inphone;
using loggersystem::logger;

constexpr int64_t kLimit = 10485760;
constexpr int64_t kLongest = 1023;

std::string generation(int number) {
  return std::string(kSelfLogFile) + (number == 0 ? "" : "." + std::to_string(number));
}

// Appends lines of `filler`, `bytes` in all: each has 1023 bytes, the last two share the rest.
class LineWriter {
 public:
  LineWriter() {
    prefix_ =
        snprintf(nullptr, 0, "YY-MM-DD hh:mm:ss || harrowmossd [%d, %d] ", getpid(), gettid());
  }
  void write(int64_t bytes, char filler) const {
    for (; bytes >= 3 * kLongest; bytes -= kLongest) line(kLongest, filler);
    for (; bytes > kLongest; bytes -= kLongest / 2) line(kLongest / 2, filler);
    line(bytes, filler);
  }

 private:
  void line(int64_t length, char filler) const {
    logger("%s", std::string(static_cast<size_t>(length - prefix_ - 1), filler).c_str());
  }
  int64_t prefix_;
};

class SelfLogRotation : public ::testing::Test {
 protected:
  void SetUp() override {
    setprop("persist.sys.logger.enable", "on");
    umask(0);
  }
  LineWriter lines;
};

TEST_F(SelfLogRotation, TheLimitItselfRotatesIntoAPrivateFile) {
  const std::string before = "what stood in the file before does not count\n";
  const auto size = static_cast<int64_t>(before.size());
  lines.write(100, 'a');
  put(kSelfLogFile, before);
  lines.write(kLimit - 101, 'a');
  EXPECT_EQ(size_of(generation(0)), kLimit - 101 + size);
  logger("%s", "the crossing line");
  const std::string first = get(generation(1));
  EXPECT_NE(first.find("] the crossing line\n", first.size() - 100), std::string::npos);
  EXPECT_EQ(mode_and_owner(generation(1)), "0777 0:0");
  EXPECT_EQ(size_of(generation(0)), 0);
  EXPECT_EQ(mode_and_owner(generation(0)), "0600 0:0");
  EXPECT_EQ(logged("D while rotating log files"), 0);  // missing generations are not reported
}

TEST_F(SelfLogRotation, KeepsFiveGenerations) {
  for (char filler = 'a'; filler <= 'g'; filler++) lines.write(kLimit, filler);
  for (int number = 1; number <= 5; number++) {
    const std::string text = get(generation(number));
    EXPECT_EQ(text.size(), static_cast<size_t>(kLimit));
    EXPECT_EQ(text[text.size() - 2], 'g' - number + 1) << number;
  }
  EXPECT_EQ(list(kSelfLogDir).size(), 6u);
  unlink(generation(5).c_str());
  put(generation(5) + "/in the way", "");
  lines.write(kLimit, 'h');  // reported and skipped
  EXPECT_EQ(logged("D while rotating log files"), 1);
  EXPECT_EQ(get(generation(1))[kLimit - 2], 'h');
  EXPECT_EQ(size_of(generation(0)), 0);
}

TEST_F(SelfLogRotation, AChildCountsOnFromItsParentAndRotatesAlone) {
  const int64_t half = kLimit / 2;
  lines.write(half, 'p');
  const pid_t child = fork_process(Group::kInherit);
  if (child == 0) {
    LineWriter().write(half, 'c');
    logger("%s", "child after");
    _exit(0);
  }
  int status = -1;
  wait_for(child, &status);
  ASSERT_EQ(status, 0);
  EXPECT_EQ(size_of(generation(1)), kLimit);
  EXPECT_NE(get(generation(0)).find("child after"), std::string::npos);
  // The parent still has the renamed file open, and half of its count left.
  lines.write(half - 1, 'p');
  EXPECT_EQ(size_of(generation(1)), kLimit + half - 1);
  EXPECT_EQ(size_of(generation(2)), -1);
  logger("%s", "crosses");
  EXPECT_GT(size_of(generation(2)), kLimit + half);
  EXPECT_NE(get(generation(1)).find("child after"), std::string::npos);
}

}  // namespace
