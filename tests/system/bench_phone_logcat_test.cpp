// The phone's logcat as the daemon meets it: processes, files and signals. Its texts are tested in
// tests/pure/logcat_parts_test.cpp.
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>

#include "phone/host/phone.h"
#include "phone/log_buffers.h"

namespace {

int count_of(const std::string& text, const std::string& word) {
  int count = 0;
  for (size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + 1)) count++;
  return count;
}

class BenchLogcat : public ::testing::Test {
 protected:
  Phone phone{{"--no-daemon"}};

  void SetUp() override { ASSERT_TRUE(phone.ok()); }

  // Starts one in the background; its pid as the phone counts.
  pid_t start(const std::string& arguments, const std::string& before = "") {
    const RunResult result = phone.shell(before + "logcat " + arguments +
                                         " > /dev/null 2> /data/logcat.err < /dev/null & echo $!");
    return atoi(result.out.c_str());
  }
  void log(const std::string& arguments) { EXPECT_EQ(phone.shell("log " + arguments).status, 0); }
  off_t bytes_held(const std::string& buffer) {
    struct stat st;
    return stat(phone.inside(log_buffer_path(buffer)).c_str(), &st) == 0 ? st.st_blocks * 512 : -1;
  }
  bool gone(pid_t pid) {
    return eventually([&] {
      for (const PhoneProcess& process : phone.processes()) {
        if (process.pid == pid && process.state != 'Z') return false;
      }
      return true;
    });
  }
};

TEST_F(BenchLogcat, DumpsBuffersInOrderOfTime) {
  log("-t A -p d one");
  log("-t B -p w -b system two");
  log("-t C -p e -b crash three");
  log("-t D -b radio apart");
  log("-t E four");
  EXPECT_EQ(phone.shell("logcat -d -v raw").out,
            "--------- beginning of main\none\n--------- beginning of system\ntwo\n"
            "--------- beginning of crash\nthree\nfour\n");
  EXPECT_EQ(phone.shell("logcat -t 2 -v tag").out,
            "--------- beginning of crash\nE/C       : three\n"
            "--------- beginning of main\nI/E       : four\n");
  EXPECT_EQ(phone.shell("vesk -d -v raw -b radio -s 'A D'").out,
            "--------- beginning of radio\napart\n");
  EXPECT_EQ(phone.shell("logcat -d -b security").out, "");
  EXPECT_NE(phone.shell("logcat -d -f /nosuch/file").status, 0);
}

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

TEST_F(BenchLogcat, GoesOnBehindItsLastLine) {
  log("-t Once -n 5 line");
  for (int i = 0; i < 2; i++) phone.shell("logcat -d -v threadtime,usec -b main -f /data/f.txt");
  EXPECT_EQ(count_of(phone.read("/data/f.txt"), "Once"), 5);
  log("-t Once another");
  phone.shell("logcat -d -v threadtime,usec -b main -f /data/f.txt");
  EXPECT_EQ(count_of(phone.read("/data/f.txt"), "Once"), 6);
  phone.shell("logcat -t 2 -v threadtime,usec -b main -f /data/f.txt");  // asked for: repeated
  EXPECT_EQ(count_of(phone.read("/data/f.txt"), "Once"), 8);
}

TEST_F(BenchLogcat, ClearsWhatWasLogged) {
  log("-t A before");
  log("-t A -b radio kept");
  log("-t K -b kernel 'from the kernel'");
  EXPECT_EQ(phone.shell("logcat -b main -c; logcat -b kernel -c").status, 0);
  EXPECT_EQ(phone.shell("logcat -d -b main -b kernel").out, "");
  log("-t A after");
  EXPECT_EQ(count_of(phone.shell("logcat -d -b main -b radio -v raw").out, "before"), 0);
  EXPECT_EQ(count_of(phone.shell("logcat -d -b main -b radio -v raw").out, "after\n"), 1);
  EXPECT_EQ(count_of(phone.shell("logcat -d -b main -b radio -v raw").out, "kept\n"), 1);
}

TEST_F(BenchLogcat, ShowsTheKernelsOwnLog) {
  log("-t late -b kernel 'a record'");
  const std::string text = phone.shell("logcat -d -b kernel -v threadtime").out;
  EXPECT_NE(text.find("late    : a record"), std::string::npos);
  if (phone.shell("dd if=/dev/kmsg of=/dev/null count=1 bs=8192 iflag=nonblock").status == 0) {
    EXPECT_NE(text.find("     0     0 "), std::string::npos);
  }
}

TEST_F(BenchLogcat, SurvivesTheCutOfABuffer) {
  const pid_t pid = start("-v raw -b main -f /data/all.txt");
  const std::string text(1000, 'x');
  log("-t Big -n 20000 " + text);  // about 20 MiB
  log("-t End 'of it'");
  ASSERT_TRUE(eventually([&] { return bytes_held("main") <= kLogBufferLimit; }));
  ASSERT_TRUE(
      eventually([&] { return count_of(phone.read("/data/all.txt"), "of it") == 1; }, 20000));
  ASSERT_TRUE(phone.signal(pid, SIGTERM));
  // A later reader finds the first whole record behind the cut.
  const std::string rest = phone.shell("logcat -d -v raw -b main").out;
  EXPECT_EQ(rest.find("--------- beginning of main\n" + text + " "), 0u);
  EXPECT_GT(count_of(rest, "\n"), 5000);
  EXPECT_LT(count_of(rest, "\n"), 20000);
}

TEST_F(BenchLogcat, EndsAsToldByItsKnobs) {
  phone.setprop("bench.logcat.radio.ignore_term", "1");
  phone.setprop("bench.logcat.crash.exit_after_ms", "50");
  const pid_t stubborn = start("-b radio -f /data/r.txt");
  const pid_t obedient = start("-b main -f /data/m.txt");
  const pid_t dying = start("-b crash -f /data/c.txt");
  log("-b radio ready");
  log("-b main ready");
  ASSERT_TRUE(eventually([&] {
    return count_of(phone.read("/data/r.txt"), "ready") +
               count_of(phone.read("/data/m.txt"), "ready") ==
           2;
  }));
  EXPECT_TRUE(phone.signal(stubborn, SIGTERM));
  EXPECT_TRUE(phone.signal(obedient, SIGTERM));
  EXPECT_TRUE(gone(obedient));
  EXPECT_TRUE(gone(dying));
  EXPECT_EQ(phone.named("logcat").size(), 1u);
  EXPECT_TRUE(phone.signal(stubborn, SIGKILL));
  EXPECT_TRUE(gone(stubborn));
  phone.setprop("bench.logcat.exit_after_ms", "1");
  phone.setprop("bench.logcat.exit_status", "4");
  EXPECT_EQ(phone.shell("logcat -b main").status, 4);
}

// SIGTERM ends it as a signal, so that its parent can tell it from a logcat that died by itself;
// and an ignored SIGTERM stays ignored, as with the real tool.
TEST_F(BenchLogcat, DiesOfSigterm) {
  const RunResult ended = phone.shell(
      "log ready; logcat -b main -f /data/w.txt & until [ -s /data/w.txt ]; do :; done;"
      "kill $!; wait $!");
  EXPECT_EQ(ended.status, 128 + SIGTERM) << ended.err;
  const pid_t deaf = start("-b main -f /data/d.txt", "trap '' TERM; ");
  log("steady");
  ASSERT_TRUE(eventually([&] { return count_of(phone.read("/data/d.txt"), "steady") == 1; }));
  ASSERT_TRUE(phone.signal(deaf, SIGTERM));
  log("still");
  EXPECT_TRUE(eventually([&] { return count_of(phone.read("/data/d.txt"), "still") == 1; }));
}

TEST_F(BenchLogcat, TellsSizesAndStatistics) {
  log("-n 10 line");
  const std::string both = phone.shell("logcat -p -g -b main").out;
  EXPECT_EQ(both.find("main: ring buffer is 16 MiB ("), 0u) << both;
  EXPECT_NE(both.find("\n~! ~1000/!\n"), std::string::npos) << both;
  const std::string statistics = phone.shell("logcat -S -b main").out;
  EXPECT_NE(statistics.find("        10\n"), std::string::npos) << statistics;
}

}  // namespace
