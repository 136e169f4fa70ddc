#include "catchers/catchers.h"
#include "tests/inphone/catchers.h"

namespace {

using namespace inphone;

constexpr char kSecureWorld[] = "/d/tzdbg/qsee_log";
constexpr char kTrustZone[] = "/d/tzdbg/log";
constexpr char kSecureFile[] = "/data/misc/zelkalog/1#run/fingerprint/qsee_log.txt";
constexpr char kTrustFile[] = "/data/misc/zelkalog/1#run/fingerprint/tzbsp.txt";
constexpr char kTwoProp[] = "persist.sys.zklog.tzbsp.enable";

using Fingerprint = Catchers;

// The kernel's file blocks its reader until there is something; so does the phone's.
void kernel_says(const char* source, const char* text) {
  const int fd = open(source, O_WRONLY | O_NONBLOCK | O_CLOEXEC);
  ASSERT_GE(fd, 0) << source;
  EXPECT_EQ(write(fd, text, strlen(text)), static_cast<ssize_t>(strlen(text)));
  close(fd);
}

TEST_F(Fingerprint, OneCopierOrTwo) {
  const std::pair<const char*, size_t> rows[] = {{"", 1},  {"off", 1}, {"On", 1},
                                                 {"1", 1}, {"on", 2},  {"only", 2}};
  size_t started = 0;
  for (const auto& [two, copiers] : rows) {
    property_set(kTwoProp, two);
    bsp_log_pid = 0;
    EXPECT_EQ(catcher_fp_log(kRun, "fingerprint"), 0);
    started += copiers;
    EXPECT_EQ(workers().size(), started) << two;
    EXPECT_EQ(bsp_log_pid != 0, copiers == 2) << two;
  }
}

TEST_F(Fingerprint, EachCopierIsAShellUnderTheDaemonsName) {
  property_set(kTwoProp, "on");
  catcher_fp_log(kRun, "fingerprint");
  EXPECT_EQ(workers(), (std::vector<pid_t>{qsee_log_pid, bsp_log_pid}));
  EXPECT_EQ(mode_and_owner(std::string(kRun) + "/fingerprint"), "0777 1015:1015");
  const struct {
    pid_t pid;
    const char* source;
    const char* file;
    const char* saved;
  } rows[] = {
      {qsee_log_pid, kSecureWorld, kSecureFile,
       "D save qsee, /d/tzdbg/qsee_log, out:/data/misc/zelkalog/1#run/fingerprint "},
      {bsp_log_pid, kTrustZone, kTrustFile,
       "D save bsp, /d/tzdbg/log, out:/data/misc/zelkalog/1#run/fingerprint"},
  };
  for (const auto& row : rows) {
    const std::string command = std::string("cat ") + row.source + " >> " + row.file;
    EXPECT_EQ(getpgid(row.pid), row.pid);
    EXPECT_TRUE(eventually([&] {
      for (const Texts& argv : calls_of("/system/bin/sh")) {
        if (argv == Texts{"harrowmossd-fp", "-c", command}) return true;
      }
      return false;
    })) << command;
    EXPECT_EQ(logged("E fork child process, pid:" + std::to_string(row.pid) + ", sh -c " + command +
                     " \n"),
              1);
    EXPECT_EQ(logged("E command=" + command + ",getpid=" + std::to_string(row.pid)), 1);
    EXPECT_EQ(logged(row.saved), 1);
    kernel_says(row.source, "a secret\n");
    EXPECT_TRUE(eventually([&] { return get(row.file) == "a secret\n"; })) << row.file;
  }
}

TEST_F(Fingerprint, ASecondStartAppends) {
  catcher_fp_log(kRun, "fingerprint");
  kernel_says(kSecureWorld, "first\n");
  EXPECT_TRUE(eventually([] { return get(kSecureFile) == "first\n"; }));
  signal_group(qsee_log_pid, SIGKILL);
  EXPECT_TRUE(eventually([] { return group_is_gone(qsee_log_pid); }));
  const pid_t first = qsee_log_pid;
  catcher_fp_log(kRun, "fingerprint");
  EXPECT_NE(qsee_log_pid, first);
  kernel_says(kSecureWorld, "second\n");
  EXPECT_TRUE(eventually([] { return get(kSecureFile) == "first\nsecond\n"; }));
}

}  // namespace
