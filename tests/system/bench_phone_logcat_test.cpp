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

TEST_F(BenchLogcat, FollowsAndRotates) {
  const pid_t pid = start("-v threadtime,usec -b main -f /data/m.txt -r 64 -n 12");
  log("-t First here");
  ASSERT_TRUE(eventually([&] { return count_of(phone.read("/data/m.txt"), "First") == 1; }));
  log("-t Big -n 3000 'a text that makes a line of about eighty characters'");
  ASSERT_TRUE(eventually([&] { return phone.exists("/data/m.txt.03"); }));
  EXPECT_FALSE(phone.exists("/data/m.txt.3"));
  log("-t Last words");
  ASSERT_TRUE(phone.signal(pid, SIGTERM));  // what is in the buffer is written all the same
  ASSERT_TRUE(gone(pid));
  int lines = 0;
  for (const std::string& name : phone.list("/data")) {
    if (name.compare(0, 5, "m.txt") == 0)
      lines += count_of(phone.read("/data/" + name), " Big     : ");
  }
  EXPECT_EQ(lines, 3000);
  EXPECT_EQ(count_of(phone.read("/data/m.txt"), "Last    : words"), 1);
  struct stat st;
  ASSERT_EQ(stat(phone.inside("/data/m.txt.03").c_str(), &st), 0);
  EXPECT_GE(st.st_size, 64 * 1024);
  EXPECT_LT(st.st_size, 64 * 1024 + 200);
}

}  // namespace
