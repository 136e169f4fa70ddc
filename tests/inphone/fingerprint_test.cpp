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

// The kernel's file blocks its reader until there is data; so does the phone's.
void kernel_says(const char* source, const char* text) {
  const int fd = open(source, O_WRONLY | O_NONBLOCK | O_CLOEXEC);
  ASSERT_GE(fd, 0) << source;
  EXPECT_EQ(write(fd, text, strlen(text)), static_cast<ssize_t>(strlen(text)));
  close(fd);
}

TEST_F(Fingerprint, OneCopierOrTwo) {
  size_t started = 0;
  for (const auto& [two, copiers] :
       {std::pair{"", 1u}, std::pair{"On", 1u}, std::pair{"only", 2u}}) {
    setprop(kTwoProp, two);
    bsp_log_pid = 0;
    EXPECT_EQ(catcher_fp_log(kRun, "fingerprint"), 0);
    EXPECT_EQ(workers().size(), started += copiers) << two;
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
    const char *source, *file;
  } rows[] = {{qsee_log_pid, kSecureWorld, kSecureFile}, {bsp_log_pid, kTrustZone, kTrustFile}};
  for (const auto& row : rows) {
    const std::string command = std::string("cat ") + row.source + " >> " + row.file;
    EXPECT_EQ(getpgid(row.pid), row.pid);
    EXPECT_TRUE(eventually([&] {
      const std::vector<Texts> calls = calls_of("/system/bin/sh");
      return std::count(calls.begin(), calls.end(), Texts{"harrowmossd-fp", "-c", command}) == 1;
    })) << command;
    kernel_says(row.source, "a secret\n");
    EXPECT_TRUE(eventually([&] { return get(row.file) == "a secret\n"; })) << row.file;
  }
}

}  // namespace
