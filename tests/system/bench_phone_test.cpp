// The promises of the bench phone to the programs in it.
#include <gtest/gtest.h>
#include <sched.h>
#include <stdlib.h>
#include <sys/mount.h>
#include <sys/wait.h>

#include <filesystem>

#include "phone/boot/sysrq.h"
#include "phone/host/phone.h"

namespace fs = std::filesystem;

namespace {

using Words = std::vector<std::string>;

// The lines that the script prints, strict and with --loose all.
TEST(BenchPhone, IsAsStrictAsAPhone) {
  const Program sleeper("logcat -b kernel -f /data/local/kernel.txt & exec sleep 1000003"),
      empty("", 0644);
  const Program rc("service harrowmossd /system_ext/bin/harrowmossd", 0644);
  const Program te(
      "# allow harrowmossd self:capability sys_admin;\n"
      "allow harrowmossd self:capability { chown fowner };\n"
      "allow other self:capability kill;\n"
      "  allow harrowmossd self:capability net_raw;  # number 13",
      0644);
  const struct {
    const char *command, *strict, *loose;
  } rows[] = {
      {"grep CapEff /proc/$(getprop init.svc_debug_pid.harrowmossd)/status | cut -c 9-",
       "0000000000002009", nullptr},
      {"stat -c %a /data", "751", "771"},
      {"getprop vold.mounted; getprop ro.vendor.build.display.id", "\n", "1\nQZ201A V1.02"},
      {"ls -d /tmp 2>&1", "ls: /tmp: No such file or directory", "/tmp"},
      {"cd /sdcard; echo x > f; chmod 741 f; chown 5:6 f; stat -c '%a %u %g' f; mkdir d; stat -c "
       "%a d",
       "660 1023 1023\n2770", "741 5 6\n755"},
      {"cd /sdcard; ln -s f l; ln f l; mkfifo l; mknod l c 1 3; ls l 2>&1; rm -f l",
       "ls: l: No such file or directory", "l"},
  };
  Words all = {"--prop", "bench.logcat.buffer=0"};
  for (const std::string& file :
       {sleeper.over("/system_ext/bin/harrowmossd"), rc.over("/system/etc/init/harrowmossd.rc"),
        empty.over("/system/etc/selinux/property_contexts"),
        te.over("/system/etc/selinux/harrowmossd.te")})
    all.insert(all.end(), {"--file", file});
  Phone strict(all);
  all.insert(all.end(), {"--loose", "all"});
  Phone loose(all);
  // The machine's kernel log; reading it needs CAP_SYSLOG.
  const std::string last = strict.shell("dmesg | tail -n 1 | sed 's/.*: //'").out;
  EXPECT_TRUE(eventually([&] {
    return strict.read("/data/local/kernel.txt").find(last) != std::string::npos;
  })) << last;
  const bool fuse = strict.read("/proc/1/mounts").find(" /sdcard fuse ") != std::string::npos;
  EXPECT_EQ(fuse, access("/dev/fuse", R_OK | W_OK) == 0);
  for (const auto& row : rows) {
    const bool sdcard = std::string(row.command).find("/sdcard") != std::string::npos;
    if (sdcard && !fuse) continue;
    const RunResult a = strict.shell(row.command), b = loose.shell(row.command);
    EXPECT_EQ(a.out, std::string(row.strict) + "\n") << row.command << a.err;
    if (row.loose != nullptr) {
      EXPECT_EQ(b.out, std::string(row.loose) + "\n") << row.command << b.err;
    }
  }
}

TEST(BenchPhone, ExitsWithItsCommandsStatus) {
  const struct {
    Words arguments;
    int status;
    const char *out, *message;
  } rows[] = {
      {{"--no-daemon", "--", "mksh", "-c", "kill -9 0"}, 137, "", ""},  // stays inside
      {{"--no-daemon", "--", "nosuch"}, 127, "", "nosuch: No such file"},
      {{"--no-daemon", "--env", "A=b", "--", "sh", "-c", "echo $A $PATH"}, 0, "b /product/", ""},
      {{"--no-daemon", "--timeout", "1", "--", "sleep", "100"}, 124, "", "ended after 1 s"},
      {{"--no-daemon", "--file", "/nosuch=/x", "--", "true"}, 125, "", "copy /nosuch to /x"},
      {{"--bad"}, 2, "", "unknown option --bad"},
  };
  for (const auto& row : rows) {
    const RunResult result = run_phone(row.arguments);
    EXPECT_EQ(result.status, row.status) << result.err;
    EXPECT_EQ(result.out.find(row.out), 0u) << result.out;
    EXPECT_NE(result.err.find(row.message), std::string::npos) << result.err;
  }
}

// With a simulated /proc in a separate mount namespace.
TEST(SysrqMask, NoPhoneBootsWithAnUnmaskedTrigger) {
  char directory[] = "/tmp/sysrq.XXXXXX";
  ASSERT_NE(mkdtemp(directory), nullptr);
  const std::string base = directory;
  ASSERT_TRUE(write_file(base + "/with/sysrq-trigger", "kernel", 0644));
  ASSERT_TRUE(make_dirs(base + "/without", 0755));
  ASSERT_TRUE(make_dirs(base + "/odd/sysrq-trigger", 0755));
  ASSERT_TRUE(write_file(base + "/mask", "", 0666));
  const struct {
    const char *proc, *mask;
    bool boots;
    const char* error;
  } rows[] = {
      {"/with", "/mask", true, ""},
      {"/without", "/mask", true, ""},
      {"/with", "/nosuch", false, "no plain file"},
      {"/with", "/without", false, "no plain file"},
      {"/odd", "/mask", false, "cannot put"},
  };
  for (const auto& row : rows) {
    const pid_t child = fork();
    if (child == 0) {
      if (unshare(CLONE_NEWNS) != 0) _exit(99);
      mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr);
      std::string error;
      const bool boots = mask_sysrq_trigger(base + row.proc, base + row.mask, &error);
      // Like a forced crash.
      if (boots && row.proc == std::string("/with")) append_file(base + "/with/sysrq-trigger", "c");
      _exit(error.find(row.error) == std::string::npos ? 98 : boots ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(WEXITSTATUS(status), row.boots ? 0 : 1) << row.proc << row.mask;
  }
  EXPECT_EQ(read_file(base + "/with/sysrq-trigger"), "kernel");
  EXPECT_EQ(read_file(base + "/mask"), "c");
  fs::remove_all(base);
}

}  // namespace
