// What the bench phone promises to everything that runs in it.
#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <set>

#include "phone/host/daemon.h"
#include "phone/host/phone.h"
#include "phone/sysrq.h"

namespace fs = std::filesystem;

namespace {

using Words = std::vector<std::string>;

// The milliseconds of every init.log line that begins with `text`.
std::vector<long> init_times(const Phone& phone, const std::string& text) {
  std::vector<long> times;
  for (const std::string& line : split(phone.read("/dev/bench/init.log"), "\n")) {
    const size_t blank = line.find(' ');
    if (line.compare(blank + 1, text.size(), text) == 0) times.push_back(atol(line.c_str()));
  }
  return times;
}

// A service that takes the daemon's place and leaves three processes: one in a session of its own,
// an orphan, and itself. They are known by what they wait for.
constexpr const char* kService =
    "#!/system/bin/mksh\nsetsid sleep 1000001 & (sleep 1000002 &)\nexec sleep 1000003\n";
const Words kLeft = {"1000001", "1000002", "1000003"};

Words sleepers(const Phone& phone) {
  Words found;
  for (const PhoneProcess& process : phone.processes()) {
    const size_t words = process.cmdline.size();
    if (words >= 2 && process.cmdline[words - 2] == "sleep")
      found.push_back(process.cmdline.back());
  }
  std::sort(found.begin(), found.end());
  return found;
}

// Boots a phone with that service, once all of it is there.
std::unique_ptr<Phone> phone_with_service() {
  const std::string script = "/tmp/bench-service." + std::to_string(getpid());
  EXPECT_TRUE(write_file(script, kService, 0755));
  auto phone = std::make_unique<Phone>(Words{"--daemon", script}, Phone::Until::kBooted);
  unlink(script.c_str());
  EXPECT_TRUE(eventually([&] {  // init tells of a service that it has started a little later
    return sleepers(*phone) == kLeft && phone->daemon_pid() > 0 &&
           phone->getprop("init.svc.harrowmossd") == "running";
  }));
  return phone;
}

TEST(BenchPhone, ShowsAPhonesFileTree) {
  Phone phone({"--no-daemon"});
  const struct {
    const char* path;
    const char* command;  // what df and mount must say of it
    const char* expected;
  } rows[] = {
      {"/", "touch /x", "Read-only"},
      {"/system/bin", "touch /system/bin/logcat", "Read-only"},
      {"/proc/sys", "echo 1 > /proc/sys/kernel/printk", "Read-only"},
      {"/data", "touch /data/x && echo ok", "ok"},
      {"/sys/kernel/debug", "touch /sys/kernel/debug/y && ls /d/y", "/d/y"},
      {"/sdcard", "touch /sdcard/one && ls /data/media/0", "one"},
      {"/proc/1", "cat /proc/1/comm", "init"},
      {"/dev/null", "echo gone > /dev/null && echo ok", "ok"},
  };
  for (const auto& row : rows) {
    const RunResult result = phone.shell(row.command);
    EXPECT_NE((result.out + result.err).find(row.expected), std::string::npos)
        << row.path << ": " << result.out << result.err;
    EXPECT_TRUE(phone.exists(row.path)) << row.path;
  }
  for (const char* host_only : {"/home", "/root", "/boot", "/usr/bin", "/var"})
    EXPECT_FALSE(phone.exists(host_only)) << host_only;
  // Only the phone's own processes are visible: init and COMMAND.
  EXPECT_EQ(phone.processes().size(), 2u);
}

TEST(BenchPhone, GivesAServiceWhatAndroidGives) {
  const std::unique_ptr<Phone> phone = phone_with_service();
  const pid_t pid = phone->daemon_pid();
  const std::string proc = "/proc/" + std::to_string(pid);
  const std::string status = phone->read(proc + "/status");
  for (const char* line : {"\nUmask:\t0077\n", "\nPPid:\t1\n",
                           "\nGroups:\t1000 1002 1007 1015 1023 1078 2001 3003 3009 9997 9998 \n"})
    EXPECT_NE(status.find(line), std::string::npos) << line << status;
  EXPECT_EQ(fs::read_symlink(phone->inside(proc + "/cwd")), "/");
  Words open = descriptors(*phone, pid);
  ASSERT_EQ(open.size(), 4u);
  EXPECT_EQ(open[3].find("socket:"), 0u);
  open.pop_back();
  EXPECT_EQ(open, Words(3, "/dev/null"));
  const std::string environment = phone->read(proc + "/environ");
  EXPECT_NE(environment.find("PATH=/product/bin:/apex/"), std::string::npos);
  EXPECT_EQ(phone->getprop("init.svc.harrowmossd"), "running");
  struct stat st;
  ASSERT_EQ(stat(phone->inside("/dev/socket/harrowmossd").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode, static_cast<mode_t>(S_IFSOCK | 0660));
  EXPECT_EQ(st.st_uid, 1000u);
  EXPECT_EQ(st.st_gid, 2000u);
}

// It dies young and has to wait; five seconds later it has run long enough.
TEST(BenchPhone, RestartsADeadServiceWithNothingLeftOfIt) {
  const std::unique_ptr<Phone> phone = phone_with_service();
  phone->shell("sleep 2000 > /dev/null 2>&1 &");
  ASSERT_TRUE(phone->signal(phone->daemon_pid(), SIGKILL));
  EXPECT_TRUE(eventually([&] { return sleepers(*phone) == Words{"2000"}; }));
  EXPECT_TRUE(eventually([&] { return phone->getprop("init.svc.harrowmossd") == "restarting"; }));
  ASSERT_TRUE(eventually([&] { return sleepers(*phone).size() == 1 + kLeft.size(); }));
  const std::vector<long> starts = init_times(*phone, "started harrowmossd");
  EXPECT_GE(starts[1] - starts[0], 4950);  // the log is a little later than the start
}

TEST(BenchPhone, FollowsTheRcFile) {
  char rc[] = "/tmp/rc.XXXXXX";
  close(mkstemp(rc));
  ASSERT_TRUE(write_file(rc,
                         "on boot\n"
                         "    mkdir /data/made 0751 system shell\n"
                         "    write /data/made/file \"two words\"\n"
                         "    chown shell log /data/made/file\n"
                         "    chmod 0640 /data/made/file\n"
                         "    rmdir /data\n"
                         "on property:a.b=1 && property:sys.boot_completed=1\n"
                         "    setprop c.d ${a.b}\n"
                         "    setprop seen yes\n"
                         "service once /system/bin/touch /data/once\n"
                         "    oneshot\n"
                         "    disabled\n"
                         "    user shell\n",
                         0644));
  Phone phone({"--file", std::string(rc) + "=/system/etc/init/harrowmossd.rc", "--no-daemon"});
  unlink(rc);
  EXPECT_NE(phone.messages().find("line 6: unknown command rmdir"), std::string::npos);
  struct stat st;
  ASSERT_EQ(stat(phone.inside("/data/made/file").c_str(), &st), 0);
  EXPECT_EQ(phone.read("/data/made/file"), "two words");
  EXPECT_EQ(st.st_mode & 07777, 0640u);
  EXPECT_EQ(st.st_uid, 2000u);
  EXPECT_EQ(st.st_gid, 1007u);
  phone.setprop("a.b", "2");
  phone.setprop("a.b", "1");
  phone.setprop("a.b", "3");  // at once: the set before was an event all the same
  EXPECT_TRUE(eventually([&] { return phone.getprop("seen") == "yes"; }));
  phone.run({"chmod", "777", "/data"});
  phone.setprop("ctl.start", "once");
  EXPECT_TRUE(eventually([&] { return phone.getprop("init.svc.once") == "stopped"; }));
  ASSERT_EQ(stat(phone.inside("/data/once").c_str(), &st), 0);
  EXPECT_EQ(st.st_uid, 2000u);
}

TEST(BenchPhone, EndsWithItsCommandsStatus) {
  const struct {
    Words arguments;
    const char* input;
    int status;
    const char* out;
    const char* message;
  } rows[] = {
      {{"--no-daemon", "--", "mksh", "-c", "kill -9 $$"}, "", 137, "", ""},
      {{"--no-daemon"}, "echo typed; exit 3", 3, "typed\n", ""},
      {{"--no-daemon", "--", "nosuch"}, "", 127, "", "nosuch: No such file"},
      {{"--no-daemon", "--env", "A=b c", "--", "sh", "-c", "echo $A $PATH"},
       "",
       0,
       "b c /product/bin",
       ""},
      {{"--no-daemon", "--timeout", "1", "--", "sleep", "100"}, "", 124, "", "ended after 1 s"},
      {{"--no-daemon", "--file", "/nosuch=/x", "--", "true"}, "", 125, "", "copy /nosuch to /x"},
      {{"--bad"}, "", 2, "", "unknown option --bad"},
  };
  for (const auto& row : rows) {
    const RunResult result = run_phone(row.arguments, row.input);
    EXPECT_EQ(result.status, row.status) << result.err;
    EXPECT_EQ(result.out.find(row.out), 0u) << result.out;
    EXPECT_NE(result.err.find(row.message), std::string::npos) << result.err;
  }
}

TEST(BenchPhone, LeavesNothingBehind) {
  const auto mount_points = [] {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator("/tmp")) {
      const std::string name = entry.path().filename();
      if (name.find("bench-phone.") == 0) names.insert(name);
    }
    return names;
  };
  const std::set<std::string> before = mount_points();
  const std::unique_ptr<Phone> phone = phone_with_service();
  // Phones of other tests come and go meanwhile, so each name has some time to vanish.
  for (const std::string& name : mount_points()) {
    EXPECT_TRUE(before.count(name) == 1 || eventually([&] { return !fs::exists("/tmp/" + name); }))
        << name;
  }
  pid_t stubborn = 0;  // has left its session
  for (const PhoneProcess& process : phone->processes()) {
    if (!process.cmdline.empty() && process.cmdline.back() == kLeft[0])
      stubborn = phone->outer_pid(process.pid);
  }
  ASSERT_GT(stubborn, 0);
  phone->end();  // kills the launcher, and fails when init outlives it
  EXPECT_NE(kill(stubborn, 0), 0);
}

// On a made-up /proc, in a mount namespace of the test's own.
TEST(SysrqMask, LetsNoPhoneBootWithTheTriggerInReach) {
  char directory[] = "/tmp/sysrq.XXXXXX";
  ASSERT_NE(mkdtemp(directory), nullptr);
  const std::string base = directory;
  ASSERT_TRUE(write_file(base + "/with/sysrq-trigger", "kernel", 0644));
  ASSERT_TRUE(make_dirs(base + "/without", 0755));
  ASSERT_TRUE(make_dirs(base + "/odd/sysrq-trigger", 0755));
  ASSERT_TRUE(write_file(base + "/mask", "", 0666));
  const struct {
    const char* proc;
    const char* mask;
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
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const pid_t child = fork();
    if (child == 0) {
      if (unshare(CLONE_NEWNS) != 0) _exit(99);
      mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr);
      std::string error;
      const bool boots = mask_sysrq_trigger(base + row.proc, base + row.mask, &error);
      // What a forced crash would write.
      if (boots && row.proc == std::string("/with")) append_file(base + "/with/sysrq-trigger", "c");
      (void)!write(ends[1], error.data(), error.size());
      _exit(boots ? 0 : 1);
    }
    close(ends[1]);
    char error[256] = "";
    (void)!read(ends[0], error, sizeof error - 1);
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(WEXITSTATUS(status), row.boots ? 0 : 1) << row.proc << row.mask << ": " << error;
    EXPECT_NE(std::string(error).find(row.error), std::string::npos) << error;
  }
  EXPECT_EQ(read_file(base + "/with/sysrq-trigger"), "kernel");
  EXPECT_EQ(read_file(base + "/mask"), "c");
  fs::remove_all(base);
}

}  // namespace
