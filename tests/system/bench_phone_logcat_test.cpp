// The phone's logcat as the daemon meets it: processes, files and signals.
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>

#include "phone/host/phone.h"

namespace {

int count_of(const std::string& text, const std::string& word) {
  int count = 0;
  for (size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + 1)) count++;
  return count;
}

class BenchLogcat : public ::testing::Test {
 protected:
  Phone phone{{"--no-daemon"}};

  // Starts one in the background; its pid as the phone counts.
  pid_t start(const std::string& arguments) {
    const RunResult result = phone.shell("logcat " + arguments +
                                         " > /dev/null 2> /data/logcat.err < /dev/null & echo $!");
    return atoi(result.out.c_str());
  }
  void log(const std::string& arguments) { EXPECT_EQ(phone.shell("log " + arguments).status, 0); }
  bool gone(pid_t pid) {
    return eventually([&] {
      for (const PhoneProcess& process : phone.processes()) {
        if (process.pid == pid && process.state != 'Z') return false;
      }
      return true;
    });
  }
};

TEST_F(BenchLogcat, RotatesAndKeepsWhatTheRealOneKeeps) {
  const std::string words = "-v threadtime,usec -b main -f /data/m.txt -r 64 -n 12";
  const auto stat_of = [&](const char* file) {
    struct stat st = {};
    EXPECT_EQ(stat(phone.inside(file).c_str(), &st), 0) << file;
    return st;
  };
  const pid_t pid = start(words);
  log("-t First here");
  ASSERT_TRUE(eventually([&] { return phone.exists("/data/m.txt"); }));
  log("-t Big -n 3000 'a text that makes a line of about eighty characters'");
  ASSERT_TRUE(eventually([&] { return phone.exists("/data/m.txt.03"); }));
  EXPECT_FALSE(phone.exists("/data/m.txt.3"));
  EXPECT_GE(stat_of("/data/m.txt.03").st_size, 64 * 1024);
  EXPECT_LT(stat_of("/data/m.txt.03").st_size, 64 * 1024 + 200);
  EXPECT_EQ(stat_of("/data/m.txt").st_mode & 07777, 0640u);
  log("-t Last words");
  ASSERT_TRUE(phone.signal(pid, SIGTERM));
  ASSERT_TRUE(gone(pid));
  EXPECT_GE(stat_of("/data/m.txt").st_blocks * 512, 64 * 1024);
  EXPECT_EQ(count_of(phone.read("/data/m.txt"), "words"), 0);

  EXPECT_EQ(phone.shell("logcat -d " + words).status, 0);
  std::string all;
  for (const std::string& name : phone.list("/data")) {
    if (name.compare(0, 5, "m.txt") == 0) all += phone.read("/data/" + name);
  }
  const int lines = count_of(all, " Big     : ");
  EXPECT_GE(lines, 3000);
  EXPECT_LE(lines, 3002);  // the seam's line again, and its torn one
  EXPECT_EQ(count_of(all, "Last    : words"), 1);
  EXPECT_EQ(count_of(all, "--------- beginning of main"), 2);
  EXPECT_NE(phone.shell("logcat -d -f /data/x.txt -r 64 -n 0").status, 0);
}

}  // namespace
