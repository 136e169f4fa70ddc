// The start-up, from the process's first step to the listening socket.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "phone/host/daemon.h"

namespace {

using Words = std::vector<std::string>;
using Phones = std::vector<std::unique_ptr<Phone>>;

constexpr const char* kKernelLog = "/data/misc/zelkalog/.logger/kernel_pmic.txt";
constexpr const char* kBootFailure =
    "/system/bin/vesk -v threadtime -b main -b events -b system -b crash -b radio -b kernel -d -f "
    "/cache/boot_fail.log";
constexpr const char* kStart = "harrowmossd";

// A phone whose daemon is started by the test, after it has prepared files.
std::unique_ptr<Phone> unstarted(Words options = {}) {
  options.push_back("--no-daemon");
  return std::make_unique<Phone>(options);
}
bool start_daemon(Phone* phone) {
  phone->setprop("ctl.start", kStart);
  return eventually([phone] { return phone->daemon_pid() > 0 && serves(*phone, 2000); });
}

// init's time, in milliseconds, of the first line that begins with `start`.
long init_time(const Phone& phone, const std::string& start) {
  for (const std::string& line : split(phone.read("/dev/bench/init.log"), "\n")) {
    if (line.compare(line.find(' ') + 1, start.size(), start) == 0) return atol(line.c_str());
  }
  return -1;
}

TEST(Startup, TakesItsStepsInOrder) {
  constexpr int kSystrace = 0x200;
  Phone phone(
      quick_vendor({"--prop", "sys.android.reboot=1", "--prop", "persist.sys.zklog.enable=on",
                    "--prop", "persist.sys.zklog.type=" + std::to_string(kMobile | kSystrace)}));
  EXPECT_GE(init_time(phone, "listening harrowmossd") - init_time(phone, "started harrowmossd"),
            1000);

  const Words sets = sets_of_daemon(phone, 0);
  ASSERT_GE(sets.size(), 4u);
  EXPECT_EQ(Words(sets.begin(), sets.begin() + 4),
            (Words{"persist.sys.logger.enable=on", "persist.sys.systrace.enable=1",
                   "persist.bluetooth.btsnoopenable=true", "persist.sys.zklog.dir_sequence=1"}));

  ASSERT_TRUE(eventually([&] { return phone.calls_of("/system/bin/vesk").size() == 1; }));
  EXPECT_EQ(phone.shell_commands()[0], kBootFailure);
  EXPECT_TRUE(phone.exists("/cache/boot_fail.log"));

  const Words lines = main_thread_log(phone, 0);
  const char* const order[] = {
      "3 manual set systrace prop",
      "6 After create directories;\n",
      "3 function invoked, !is_poweroffcharge : 1",
      "3 fork ",
      "3 current work dir : 1#",
      "3 log_enable = on  del_enable = true",
      "3 fork a child ",
  };
  size_t before = 0;
  for (const char* step : order) {
    const size_t at = index_of(lines, step);
    EXPECT_LT(at, lines.size()) << step;
    EXPECT_GE(at, before) << step;
    before = at;
  }
  EXPECT_TRUE(all_logcats_run(phone));
  EXPECT_TRUE(eventually([&] { return size_monitor(phone).pid > 0; }));
}

TEST(Startup, SavesTheLogOfAFailedBootOnce) {
  const struct {
    const char* reboot;
    const char* existing;  // "": none
    bool saves;
  } rows[] = {
      {"1", "", true},   {"1", "of the last time\n", false}, {"0", "", false}, {"", "", false},
      {"12", "", true},  // only the first character counts
      {"01", "", false},
  };
  Phones phones;
  for (const auto& row : rows) {
    phones.push_back(unstarted({"--prop", std::string("sys.android.reboot=") + row.reboot}));
    Phone& phone = *phones.back();
    if (row.existing[0] != '\0') phone.write("/cache/boot_fail.log", row.existing);
    phone.shell("log -t boot what went wrong");
    phone.setprop("ctl.start", kStart);
  }
  for (size_t i = 0; i < std::size(rows); i++) {
    const Phone& phone = *phones[i];
    ASSERT_TRUE(eventually([&] { return serves(phone, 2000); }));
    const std::string text = phone.read("/cache/boot_fail.log");
    EXPECT_EQ(phone.calls_of("/system/bin/vesk").size(), rows[i].saves ? 1u : 0u) << i;
    EXPECT_EQ(text.find("what went wrong") != std::string::npos, rows[i].saves) << i;
    if (!rows[i].saves) {
      EXPECT_EQ(text, rows[i].existing) << i;
    }
  }
}

TEST(Startup, SavesTheKernelLogOfThisBoot) {
  const std::unique_ptr<Phone> started = unstarted();
  Phone& phone = *started;
  phone.write(kKernelLog, "of an earlier boot\n");
  phone.shell("log -t late -b kernel 'of this boot'");
  ASSERT_TRUE(start_daemon(&phone));
  ASSERT_TRUE(settled(phone));
  const std::string file = kKernelLog;
  EXPECT_EQ(phone.shell_commands(),
            (Words{"/system/bin/rm " + file +
                   "; /system/bin/logcat -d -v threadtime,usec -t 5000 -b kernel -f " + file}));
  EXPECT_EQ(count_lines(phone, "manual set systrace prop"), 0);  // only for a run in progress
  const std::string text = phone.read(file);
  EXPECT_EQ(text.find("of an earlier boot"), std::string::npos);
  EXPECT_NE(text.find("of this boot"), std::string::npos);
}

// Also after the daemon was killed: init restarts it, and it continues with a new run.
TEST(Startup, ResumesLoggingThatWasOn) {
  Phone phone(quick_vendor());
  ASSERT_EQ(start_logging(phone, kMobile), 0);
  const std::string first = run_name(phone);
  phone.shell("log -t mark before the kill");
  const std::string file = "/mobile/QZ201A-V1.02-main.txt";
  ASSERT_TRUE(all_logcats_run(phone));
  const pid_t killed = phone.daemon_pid();
  ASSERT_TRUE(phone.signal(killed, SIGKILL));

  ASSERT_TRUE(eventually([&] { return run_name(phone) != first; }, kTimerMs));
  const std::string second = run_name(phone);
  EXPECT_EQ(second.substr(0, 2), "2#");
  ASSERT_TRUE(eventually([&] { return serves(phone, 2000); }));
  EXPECT_NE(phone.daemon_pid(), killed);
  EXPECT_TRUE(all_logcats_run(phone));
  EXPECT_EQ(logcat_of(phone, "main").ppid, phone.daemon_pid());
  EXPECT_TRUE(eventually([&] { return size_monitor(phone).ppid == phone.daemon_pid(); }));
  ASSERT_EQ(stop_logging(phone), 0);  // moves both
  EXPECT_TRUE(phone.exists(store_path(first) + file));
  // Unwritten lines of the first logcat are still in the buffer.
  EXPECT_NE(phone.read(store_path(second) + file).find("before the kill"), std::string::npos);
  EXPECT_TRUE(eventually_childless(phone));
}

// Killed during a stop's move: every byte is complete in one of its two places, and the next stop
// moves the rest.
TEST(Startup, CompletesAnInterruptedMove) {
  constexpr int kFiles = 4;
  const auto content = [](int i) { return std::string(12 << 20, static_cast<char>('a' + i)); };
  Phone phone(quick_vendor());
  ASSERT_EQ(start_logging(phone, kMobile), 0);
  const std::string run = run_name(phone);
  const auto name = [](int i) { return "/big/" + std::to_string(i); };
  for (int i = 0; i < kFiles; i++) phone.write(working_path(run) + name(i), content(i));
  const pid_t killed = phone.daemon_pid();
  Client client(phone);
  ASSERT_TRUE(client.send(request(3, 1)));
  ASSERT_TRUE(eventually([&] {
    return phone.exists(working_path(".moving-" + run)) || phone.exists(store_path(run));
  }));
  ASSERT_TRUE(phone.signal(killed, SIGKILL));
  ASSERT_TRUE(eventually([&] { return phone.daemon_pid() != killed && serves(phone); }, kTimerMs));
  for (int i = 0; i < kFiles; i++) {
    const std::string stored = phone.read(store_path(run) + name(i));
    EXPECT_TRUE(stored == content(i) || phone.read(working_path(run) + name(i)) == content(i)) << i;
    EXPECT_TRUE(stored.empty() || stored == content(i)) << i << " " << stored.size();
  }
  for (const std::string& entry : phone.list("/data/misc/zelkalog"))
    EXPECT_EQ(entry.find("ing-"), std::string::npos) << entry;
  ASSERT_EQ(stop_logging(phone), 0);
  for (int i = 0; i < kFiles; i++)
    EXPECT_TRUE(phone.read(store_path(run) + name(i)) == content(i)) << i;
}

TEST(Startup, WaitsUntilDataCanBeWritten) {
  const std::unique_ptr<Phone> started = unstarted();
  Phone& phone = *started;
  ASSERT_EQ(phone.shell("rm -rf /data/misc/zelkalog; mount -o remount,ro /data").status, 0);
  phone.setprop("ctl.start", kStart);
  // Two attempts: it is in the loop.
  ASSERT_TRUE(eventually([&] { return count_lines(phone, "/data access R ok.") >= 2; }));
  EXPECT_FALSE(Client(phone).connected());
  EXPECT_EQ(count_lines(phone, "After create directories;"), 0);
  // Before the handlers are installed too: no signal ends the daemon.
  const pid_t daemon = phone.daemon_pid();
  for (const int sig : {SIGTERM, SIGINT, SIGPIPE, SIGALRM}) ASSERT_TRUE(phone.signal(daemon, sig));
  ASSERT_EQ(phone.shell("mount -o remount,rw /data").status, 0);
  EXPECT_TRUE(eventually([&] { return serves(phone, 2000); }));
  EXPECT_EQ(phone.daemon_pid(), daemon);
  EXPECT_EQ(count_lines(phone, "catch signal "), 4);
  struct stat st;
  ASSERT_EQ(stat(phone.inside("/data/misc/zelkalog").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 07777, 0777u);
  EXPECT_EQ(st.st_uid, 1015u);
}

TEST(Startup, EndsWithoutAControlSocket) {
  const std::pair<const char*, Words> rows[] = {
      {"none", {"env", "-u", "ANDROID_SOCKET_harrowmossd"}},
      {"another file", {"env", "ANDROID_SOCKET_harrowmossd=0"}},
      {"no number", {"env", "ANDROID_SOCKET_harrowmossd=x"}},
  };
  for (const auto& [what, environment] : rows) {
    Phone phone({"--no-daemon"});
    Words command = environment;
    command.push_back("/system_ext/bin/harrowmossd");
    EXPECT_EQ(phone.run(command).status, 1) << what;
    const auto errors = lines_with(daemon_log(phone), "Failed to get socket from environment: ");
    ASSERT_EQ(errors.size(), 1u) << what;
    EXPECT_EQ(errors[0].priority, 6);
  }
}

TEST(Startup, EndsWhenItCannotListen) {
  const Program rc(  // for init, the first line is a comment
      "on post-fs-data\n"
      "    mkdir /data/misc/zelkalog 0777\n"
      "service harrowmossd /system_ext/bin/harrowmossd\n"
      "    class late_start\n"
      "    socket harrowmossd dgram 0660 root system",
      0644);
  Phone phone({"--file", rc.over("/system/etc/init/harrowmossd.rc")}, Phone::Until::kBooted);
  Words log;
  ASSERT_TRUE(eventually([&] {
    log = phone.init_log();
    return index_of(log, "ended harrowmossd") < log.size();
  }));
  EXPECT_NE(log[index_of(log, "ended harrowmossd")].find("status 1"), std::string::npos);
  EXPECT_GE(count_lines(phone, std::string("Listen on socket failed: ") + strerror(EOPNOTSUPP)), 1);
}

}  // namespace
