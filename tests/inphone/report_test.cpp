// The device report, the getters of a feedback bundle, and the dump of the log buffers.
#include "feedback/report.h"

#include "debuglog/settings.h"
#include "feedback/feedback.h"
#include "tests/inphone/inphone.h"

namespace {

using namespace inphone;

constexpr off_t kBlock = 4096;

// The report of the phone that FixedPhone makes.
constexpr char kGolden[] =
    R"(Filesystem                        Size              Used              Free     Blksize
/system                       1048576B            12288B          1036288B        4096
/data                        67108864B            40960B         67067904B        4096

Version Number          answer to ro.build.display.id

Device Battery          83

EMMC Manufacturer       0x000015

Battery Temperature     287

Battery Voltage         4187000

ro.bootmode             answer to ro.bootmode

Network Information     answer to gsm.network.type

Location                answer to gsm.operator.iso-country

Single And Double Card  answer to gsm.sim.state

SN Number               answer to ro.serialno

--------------------------------------------------------

Memory                  MemTotal:        3781234 kB
                        MemFree:          101234 kB
                        Buffers:              12 kB

--------------------------------------------------------

IsRoot:N

----- uptime -----
 12:00:00 up 3 days

----- uptime -----

----- df -h -----
Filesystem Size
called with -h

----- df -h -----
)";

// Mounts a file system at `path` with `used` bytes taken.
void fixed_file_system(const char* path, const char* size, off_t used) {
  ASSERT_EQ(mount("fixed", path, "tmpfs", 0, size), 0) << path << " " << strerror(errno);
  put_bytes(std::string(path) + "/used", used);
}

void put_program(const std::string& name, const std::string& script) {
  put("/tmp/bin/" + name, "#!/system/bin/mksh\n" + script + "\n");
  ASSERT_EQ(chmod(("/tmp/bin/" + name).c_str(), 0755), 0);
}

// Tools and file systems with fixed output.
class FixedPhone : public ::testing::Test {
 protected:
  void SetUp() override {
    const int programs = open("/system/bin", O_PATH | O_CLOEXEC);
    fixed_file_system("/system", "size=1m", 3 * kBlock);
    ASSERT_EQ(mkdir("/system/bin", 0755), 0);
    const std::string old = "/proc/self/fd/" + std::to_string(programs);
    ASSERT_EQ(mount(old.c_str(), "/system/bin", nullptr, MS_BIND | MS_REC, nullptr), 0)
        << strerror(errno);
    fixed_file_system("/data", "size=64m", 10 * kBlock);
    ASSERT_EQ(mount(nullptr, "/data", nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr), 0);
    put("/tmp/meminfo",
        "MemTotal:        3781234 kB\nMemFree:          101234 kB\nBuffers:              12 kB\n");
    ASSERT_EQ(mount("/tmp/meminfo", "/proc/meminfo", nullptr, MS_BIND, nullptr), 0);
    put_program("getprop",
                "if [ $# = 0 ]; then echo \"[a.b]: [c]\"; else echo answer to \"$@\"; fi");
    put_program("uptime", "echo ' 12:00:00 up 3 days'");
    put_program("df", "echo 'Filesystem Size'; echo called with \"$@\"");
    setenv("PATH", "/tmp/bin:/system/bin", 1);
    ASSERT_EQ(mkdir("/tmp/out", 0755), 0);
  }
};

// The worker has 2 s for a dozen programs; a busy machine may need longer.
size_t cut_reports() {
  size_t cut = 0;
  for (const std::string& text : log_texts()) cut += text.find(" timeout, kill it") != text.npos;
  return cut;
}

// Runs `reports` with an empty /tmp/out until none of its workers was cut off.
bool write_whole(const std::function<void()>& reports) {
  return eventually([&] {
    for (const std::string& name : list("/tmp/out")) unlink(("/tmp/out/" + name).c_str());
    const size_t before = cut_reports();
    reports();
    return cut_reports() == before;
  });
}

TEST_F(FixedPhone, IsReportedByteForByteAndASecondReportFollows) {
  ASSERT_TRUE(write_whole([] {
    for (const char* dir : {"/tmp/out", "/tmp/out/"}) EXPECT_EQ(copy_system_propertie(dir, ""), 0);
  }));
  EXPECT_EQ(get("/tmp/out/others.prop"), std::string(kGolden) + kGolden);
  EXPECT_EQ(get("/tmp/out/system.prop"), "[a.b]: [c]\n");
  setprop("persist.sys.zelka.isroot", "1");
  ASSERT_TRUE(write_whole([] { EXPECT_EQ(copy_system_propertie("/tmp/out", "_stop"), 0); }));
  EXPECT_EQ(list("/tmp/out"), (Texts{"others_stop.prop", "system_stop.prop"}));
  std::string rooted = kGolden;
  rooted.replace(rooted.find("IsRoot:N"), 8, "IsRoot:Y");
  EXPECT_EQ(get("/tmp/out/others_stop.prop"), rooted);
  EXPECT_EQ(copy_system_propertie("/tmp/none", ""), 0);
  EXPECT_FALSE(exists("/tmp/none"));
  EXPECT_EQ(logged("E /tmp/none/others.prop create/open failed!\n"), 2);  // main block, root line
}

TEST_F(FixedPhone, UsedSizesAndRowsOfFileSystems) {
  const struct {
    const char* mount;
    int64_t used;
    const char* row;
  } rows[] = {
      {"/data/used", 10 * kBlock,
       "/data/used                   67108864B            40960B         67067904B        4096\n"},
      {"/none", 0, "Failed to get filesystem:/none information!\n"},
      {"/proc", 0, "Failed to get filesystem:/proc information!\n"},  // has no blocks
  };
  for (const auto& row : rows) {
    EXPECT_EQ(get_mount_used_size(row.mount), row.used) << row.mount;
    EXPECT_EQ(write_mount_info_detail(row.mount), row.row);
  }
  EXPECT_EQ(logged(std::string("E get used size of filesystem:/none failed. ") + strerror(ENOENT)),
            1);
}

TEST(DeviceReport, AnItemIsItsLabelAndIndentedOutput) {
  const std::string label = "Label" + std::string(17 + 2, ' '), indent(24, ' ');
  const std::string block(299, 'x');  // read at once
  const std::pair<FixedText, std::string> rows[] = {
      {"true", label + "\n"},
      {"no-such-command", label + "\n"},
      {"printf one", label + "one\n"},
      {"printf '%s\\n' one 2 three", label + "one\n" + indent + "2\n" + indent + "three\n\n"},
      {"printf '\\n\\nx\\n'", label + "\n" + indent + "\n" + indent + "x\n\n"},
      {"cat /tmp/long", label + block + indent + std::string(51, 'x') + "\n\n"},
      {"cat /tmp/exact", label + block + indent + "\n\n"},  // its newline is read alone
  };
  put("/tmp/long", std::string(350, 'x') + "\n");
  put("/tmp/exact", block + "\n");
  for (const auto& [command, item] : rows)
    EXPECT_EQ(write_device_base_info("Label", command), item) << command.get();
  const NoDescriptors none;
  EXPECT_EQ(write_device_base_info("Label", "echo one"), "");  // no pipe either
}

TEST(DeviceReport, IsRootedByAProgramInPathOrByTheProperty) {
  const std::string longest = "/tmp/su-here:/" + std::string(241, 'x');
  put("/tmp/su-here/su", "");
  for (const char* dir : {"/tmp/empty", "/tmp/link", "/tmp/directory/su"})
    std::filesystem::create_directories(dir);
  ASSERT_EQ(symlink("/tmp/nothing", "/tmp/link/su"), 0);
  const struct {
    const char *path, *property;
    bool rooted;
    // clang-format off
  } rows[] = {
      {"/tmp/empty", "1", true}, {"/tmp/empty", "10", false}, {"/tmp/link", "", false},
      {"/tmp/directory", "", true},
      {"/tmp/empty:/tmp/su-here", "", true}, {"::/tmp/su-here", "0", true},
      {"", "", false}, {nullptr, "", false}, {nullptr, "1", true}, {longest.c_str(), "", true}};
  // clang-format on
  ASSERT_EQ(longest.size(), 255u);
  for (const auto& row : rows) {
    setprop("persist.sys.zelka.isroot", row.property);
    row.path == nullptr ? unsetenv("PATH") : setenv("PATH", row.path, 1);
    EXPECT_EQ(isRooted(), row.rooted) << (row.path ? row.path : "no PATH") << " " << row.property;
  }
  EXPECT_EQ(logged("D /tmp/su-here/su su exist"), 3);
  setenv("PATH", (longest + "x").c_str(), 1);
  EXPECT_EXIT(isRooted(), ::testing::KilledBySignal(SIGABRT), "");
}

// Without a descriptor for its pipe a copy cannot start. The request's children have some, as the
// daemon's do.
TEST_F(FixedPhone, EndlessOutputIsCut) {
  put_program("df", "exec yes " + std::string(250, 'x'));
  append_info("/tmp/out/", "others.prop", "before\n");
  write_cmd_output("/tmp/out/", "others.prop", "df -h");
  EXPECT_EQ(logged_beginning("E tool writes more than 16777216 bytes, kill it: df -h"), 1);
  EXPECT_LE(std::filesystem::file_size("/tmp/out/others.prop"), 16777216u + 256);
}

TEST(FeedbackWalk, EndsAtTheFirstFailureWithThePropertyFiles) {
  constexpr rlim_t kFiles = 64;
  const rlimit few = {kFiles, kFiles};
  std::filesystem::create_directories("/data/out");
  std::filesystem::create_directories(kGeneralDir);
  EXPECT_EQ(get_mount_used_size("/none"), 0);  // opens the log for good
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
  std::vector<int> fillers;
  for (int fd; (fd = open("/dev/null", O_RDONLY | O_CLOEXEC)) >= 0;) fillers.push_back(fd);
  for (size_t i = 0; i < 4; i++) close_in_children(fillers[i]);
  const int ret = get_feedback_log(0x20 | 0x40 | 0x1000 | 0x100, "/data/out");
  for (const int fd : fillers) close(fd);
  EXPECT_EQ(ret, -1);
  EXPECT_EQ(logged("E get_tombstone_log ret -1"), 1);
  EXPECT_EQ(logged("E get_anr_log ret -1"), 0);
  EXPECT_EQ(shell_commands()[0], "getprop > /data/out/system.prop");
  EXPECT_EQ(list("/data/out"), (Texts{"others.prop", "system.prop"}));
  EXPECT_NE(get("/data/out/system.prop"), "");
  EXPECT_EQ(get("/data/out/others.prop").rfind("Filesystem  ", 0), 0u);
}

// Every buffer is dumped, with or without a thread of its own.
TEST(GeneralDump, IsMadeWithoutThreadsToo) {
  become_main_process();
  catch_sigchld();
  const int64_t pages = atoll(get("/proc/self/statm").c_str());
  // Less than a thread's stack: 1 MiB with Android's C library, 8 MiB with glibc.
  const rlim_t no_stack = static_cast<rlim_t>(pages * getpagesize() + (768 << 10));
  const rlimit all = {RLIM_INFINITY, RLIM_INFINITY}, few = {no_stack, RLIM_INFINITY};
  for (const bool threads : {false, true}) {
    const std::string dir = threads ? "/sdcard/with" : "/sdcard/without";
    ASSERT_EQ(setrlimit(RLIMIT_AS, threads ? &all : &few), 0);
    EXPECT_EQ(get_general_log(dir.c_str()), 0);
    long dumps = 0;
    for (const std::string& command : shell_commands()) {
      dumps += command.find("logcat -d ") != std::string::npos &&
               command.find(dir + "/general/") != std::string::npos;
    }
    EXPECT_EQ(dumps, 6) << dir;
    EXPECT_EQ(logged_beginning("E no thread for "), 6);  // the first time
  }
}

// Shared storage has several paths, and a link adds one to any directory.
TEST(FeedbackDestination, IsRefusedInsideOfASourceUnderAnyName) {
  put(std::string(kGeneralDir) + "x", "");
  ASSERT_EQ(symlink("/data/anr", "/data/link"), 0);
  std::filesystem::create_directories("/data/anr/heap");
  for (const char* path : {"/data/media/0/Android/data/.harrowmoss/general", "/data/link/new/dir",
                           "/data/media/0/Android/data/.harrowmoss/general/new", "/data/link/heap"})
    EXPECT_STREQ(feedback_destination_fault(-1, path), "inside of what is copied") << path;
  EXPECT_EQ(feedback_destination_fault(-1, "/data/media/0/Android/data/.harrowmoss/new"), nullptr);
}

}  // namespace
