#include <thread>

#include "catchers/fingerprint.h"
#include "daemon/harrowmoss.h"
#include "debuglog/run.h"
#include "storage/utils.h"
#include "tests/inphone/inphone.h"

namespace {

using namespace inphone;

constexpr unsigned long kLimit = 20971520;
constexpr char kDir[] = "/data/fp";

void put_sparse(const std::string& path, off_t size) {
  put(path, "");
  ASSERT_EQ(truncate(path.c_str(), size), 0);
}

class RotateFpLogs : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(mkdir(kDir, 0777), 0); }
  static std::string file(const std::string& name) { return std::string(kDir) + "/" + name; }
};

TEST_F(RotateFpLogs, OnlyTheseNames) {
  const std::pair<const char*, bool> rows[] = {
      {"qrtr_last", true}, {"qsee_log.txt.1", false}, {"QSEE_LOG.TXT", false}, {"main.txt", false}};
  for (const auto& [name, known] : rows) {
    put_bytes(file(name), 4096);
    rotateFpLogs(kDir, name, 4096, 1);
    EXPECT_EQ(exists(file(name) + ".1"), known) << name;
    EXPECT_EQ(logged(std::string("E error support fp log only. fileName:") + name + "\n"),
              known ? 0 : 1);
  }
}

TEST_F(RotateFpLogs, RunsExactlyTheseCommands) {
  const Texts all = {"mv /data/fp/tzbsp.txt.2 /data/fp/tzbsp.txt.3",
                     "mv /data/fp/tzbsp.txt.1 /data/fp/tzbsp.txt.2",
                     "cp /data/fp/tzbsp.txt /data/fp/tzbsp.txt.1", "echo > /data/fp/tzbsp.txt"};
  const struct {
    const char* dir;
    int count;
    size_t commands;  // count of the last of `all`
  } rows[] = {{"/data/fp", 3, 4},
              {"/data/fp/", 3, 4},
              {"/data/fp", 1, 2},
              {"/data/fp", 0, 0},
              {"/data/fp", -1, 0}};
  for (const auto& row : rows) {
    put(file("tzbsp.txt"), "four");
    const size_t before = shell_commands().size();
    rotateFpLogs(row.dir, "tzbsp.txt", 4, row.count);
    const Texts run = shell_commands();
    EXPECT_EQ(texts_since(run, before),
              Texts(all.end() - static_cast<ptrdiff_t>(row.commands), all.end()))
        << row.dir << " " << row.count;
  }
  for (const std::string& command : all)
    EXPECT_GE(logged("E run rotateFpLogs cmd:" + command + "\n"), 1) << command;
  EXPECT_EQ(logged("E need to rotateFpLogs, filePath:/data/fp/tzbsp.txt\n"), 5);
  rotateFpLogs(kDir, "qsee_log.txt", 0, 5);  // missing
  EXPECT_EQ(logged_beginning("E need to"), 5);
}

TEST_F(RotateFpLogs, TheRunsTracesHaveFiveGenerationsOf20MiB) {
  share_current_run();
  enter_run("1#run");
  set_fingerprint_log_dir("fingerprint");
  for (const std::string name : {"qsee_log.txt", "tzbsp.txt"}) {
    const std::string path = "/data/misc/zelkalog/1#run/fingerprint/" + name;
    put_bytes(path, kLimit - 1);
    rotate_traces();
    EXPECT_FALSE(exists(path + ".1")) << name;
    for (const char* number : {".1", ".2", ".3", ".4", ".5"}) put(path + number, number);
    put_bytes(path, kLimit);
    rotate_traces();
    EXPECT_EQ(getFileSize((path + ".1").c_str()), static_cast<int64_t>(kLimit)) << name;
    EXPECT_EQ(get(path + ".2"), ".1") << name;
    EXPECT_EQ(get(path + ".5"), ".4") << name;
    EXPECT_FALSE(exists(path + ".6")) << name;
  }
}

// The router log's copier keeps writing at its old offset: after the first rotation its file is a
// hole plus a little data, and its size would trigger a rotation at every check.
TEST_F(RotateFpLogs, AHoleInTheRouterLogDoesNotCount) {
  for (const char* name : {"qrtr_last", "qrtr_last.txt"}) {
    const int writer = open(file(name).c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
    const std::string full(512000, 'q');
    ASSERT_EQ(write(writer, full.data(), full.size()), 512000);
    rotateFpLogs(kDir, name, 512000, 3);
    EXPECT_EQ(get(file(name) + ".1"), full) << name;
    ASSERT_EQ(write(writer, "more", 4), 4);
    const size_t commands = shell_commands().size();
    rotateFpLogs(kDir, name, 512000, 3);
    EXPECT_EQ(shell_commands().size(), commands) << name;
    // Due again once as much has been written.
    ASSERT_EQ(write(writer, full.data(), full.size()), 512000);
    rotateFpLogs(kDir, name, 512000, 3);
    EXPECT_EQ(get(file(name) + ".2"), full) << name;
    close(writer);
  }
  // The other files count by their size.
  put_sparse(file("tzbsp.txt"), 512000);
  rotateFpLogs(kDir, "tzbsp.txt", 512000, 3);
  EXPECT_TRUE(exists(file("tzbsp.txt.1")));
}

// An incomplete copy must not cost the live file, nor a generation per attempt.
TEST_F(RotateFpLogs, AFailedCopyLosesOnlyTheOldest) {
  ASSERT_EQ(mount("tmpfs", kDir, "tmpfs", 0, "size=1m"), 0);
  const std::string text(300000, 'q');
  const auto rotate_in_thread = [](int count) {  // each starts without a pause
    std::thread([count] { rotateFpLogs(kDir, "tzbsp.txt", 4, count); }).join();
  };
  put(file("tzbsp.txt"), text);
  for (const char* number : {".1", ".2", ".3"}) put(file("tzbsp.txt") + number, number);
  fill_up_to(kDir, 98304);
  rotateFpLogs(kDir, "tzbsp.txt", 4, 3);
  const size_t commands = shell_commands().size();
  rotateFpLogs(kDir, "tzbsp.txt", 4, 3);
  EXPECT_EQ(shell_commands().size(), commands);
  for (int i = 0; i < 4; i++) rotate_in_thread(3);
  unlink(file("filler").c_str());
  rlimit before;
  getrlimit(RLIMIT_FSIZE, &before);
  const rlimit less = {text.size() - 1, before.rlim_max};
  setrlimit(RLIMIT_FSIZE, &less);  // cp is killed in the middle
  for (int i = 0; i < 2; i++) rotate_in_thread(3);
  setrlimit(RLIMIT_FSIZE, &before);
  EXPECT_TRUE(get(file("tzbsp.txt")) == text);
  EXPECT_EQ(get(file("tzbsp.txt.1")), ".1");
  EXPECT_EQ(get(file("tzbsp.txt.2")), ".2");
  EXPECT_EQ(logged("E cannot copy /data/fp/tzbsp.txt, it is not emptied; the next try is in 60 s"),
            7);
  rotate_in_thread(3);
  EXPECT_TRUE(get(file("tzbsp.txt.1")) == text);
  EXPECT_EQ(get(file("tzbsp.txt.3")), ".2");
}

// Between these lengths the copy command does not fit, but the truncation would.
TEST_F(RotateFpLogs, IsNeverEmptiedWithoutItsCopy) {
  for (const size_t length : {225, 229, 240}) {
    const std::string dir = std::string(kDir) + "/" + std::string(length, 'x');
    put(dir + "/tzbsp.txt", "four");
    rotateFpLogs(dir.c_str(), "tzbsp.txt", 4, 2);
    const std::string copied = get(dir + "/tzbsp.txt.1");
    EXPECT_EQ(copied.empty() ? get(dir + "/tzbsp.txt") : copied, "four") << length;
  }
}

}  // namespace
