// Failing moves to shared storage: nothing captured may be lost, whatever mv returns and whichever
// process is killed.
#include "storage/linked_move.h"

#include <map>

#include "storage/utils.h"
#include "tests/inphone/inphone.h"

namespace {

using namespace inphone;

constexpr char kWork[] = "/data/misc/zelkalog/";
constexpr char kStore[] = "/sdcard/zelkalog/";
constexpr size_t kFileBytes = 2 << 20;
constexpr int kFiles = 8;

class LinkedMoves : public ::testing::Test {
 protected:
  void SetUp() override {
    become_main_process();
    catch_sigchld();
    ASSERT_EQ(creat_dir(kStore), 0);
    capture();
  }
  // A finished run; each file is filled with a different byte.
  static void capture() {
    for (int i = 0; i < kFiles; i++) put(kWork + file(i), content(i));
  }
  static std::string file(int i) { return "7#run/mobile/f" + std::to_string(i); }
  static std::string content(int i) { return std::string(kFileBytes, static_cast<char>('a' + i)); }
  static void resize(const char* mount_point, const std::string& size) {
    ASSERT_EQ(mount(nullptr, mount_point, nullptr, MS_REMOUNT, ("size=" + size).c_str()), 0);
  }
  // Makes mv run these shell texts before and after its work.
  static void hook_into_mv(const std::string& before, const std::string& after) {
    replace_program(
        "mv", before + "\n/system/bin/toybox mv \"$@\"\nstatus=$?\n" + after + "\nexit $status");
  }
  static int move_runs() { return move_dir("/data/misc/zelkalog/*", kStore, nullptr); }
  static bool is_whole(int i) {
    return get(kStore + file(i)) == content(i) || get(kWork + file(i)) == content(i);
  }
  // Every file is complete in one of the two places and truncated in none; no tree is left.
  static void expect_whole() {
    for (int i = 0; i < kFiles; i++) {
      EXPECT_TRUE(is_whole(i)) << i;
      const std::string there = get(kStore + file(i));
      EXPECT_TRUE(there.size() == kFileBytes || there.empty()) << i << " " << there.size();
    }
    expect_no_tree();
  }
  // The entries of the working area, without the self log.
  static Texts left() {
    Texts names = list(kWork);
    names.erase(std::remove(names.begin(), names.end(), ".logger"), names.end());
    return names;
  }
  static void expect_no_tree() {
    for (const std::string& name : left()) EXPECT_EQ(name.find("ing-"), std::string::npos) << name;
  }
  static long incomplete() {
    return logged_beginning(
        "E move of /data/misc/zelkalog/7#run to /sdcard/zelkalog is not complete: ");
  }
};

TEST_F(LinkedMoves, EventsDuringTheCommandLoseNoByte) {
  const std::string f0 = file(0), run = std::string(kWork) + "7#run/mobile";
  const std::string at_target = kStore + f0, at_source = kWork + f0;
  using Files = std::map<std::string, std::string>;
  const std::string a = content(0);
  const struct {
    const char* what;
    std::string before, after;
    long lines;  // that report it
    Files expected;
    // clang-format off
  } rows[] = {
      {"nothing", "", "", 0, {{at_target, a}, {at_source, ""}}},
      {"cut at the target", "", ": > " + at_target, 1, {{at_target, ""}, {at_source, a}}},
      {"gone at the target", "", "rm " + at_target, 1, {{at_target, ""}, {at_source, a}}},
      {"mv does nothing", "exit 0", "", 1, {{at_target, ""}, {at_source, a}}},
      {"its writer goes on", "exec 3>>" + at_source, "echo more >&3", 0,
       {{at_target, a + "more\n"}, {at_source, ""}}},
      {"its name is taken again", "",
       ": > " + at_target + "; mkdir -p " + run + "; echo new > " + at_source, 1,
       {{at_target, ""}, {at_source, "new\n"}, {at_source + ".moved-1", a}}},
      {"the vendor puts something there",
       "mkdir -p /sdcard/zelkalog/7#run; echo theirs > /sdcard/zelkalog/7#run/v", "rm " + at_target,
       1, {{"/sdcard/zelkalog/7#run/v", "theirs\n"}, {at_source, a}}},
      // clang-format on
  };
  for (const auto& row : rows) {
    std::filesystem::remove_all(std::string(kStore) + "7#run");
    std::filesystem::remove_all(std::string(kWork) + "7#run");
    capture();
    hook_into_mv(row.before, row.after);
    const long before = incomplete();
    EXPECT_EQ(move_runs() == 0, row.lines == 0) << row.what;
    EXPECT_EQ(incomplete() - before, row.lines) << row.what;
    for (const auto& [path, text] : row.expected)
      EXPECT_TRUE(get(path) == text) << row.what << ": " << path << " " << get(path).size();
    for (int i = 1; i < kFiles; i++) EXPECT_TRUE(is_whole(i)) << row.what;
    expect_no_tree();
  }
}

// The space is taken by another process after it was checked.
TEST_F(LinkedMoves, AnotherWriterFillsTheTarget) {
  resize("/data/media/0", "24m");
  hook_into_mv("head -c 18m /dev/zero > /sdcard/other", "");  // between the check and the move
  EXPECT_NE(move_runs(), 0);
  EXPECT_EQ(incomplete(), 1);
  expect_whole();
  // With space again, the next move takes the rest.
  unlink("/sdcard/other");
  hook_into_mv("", "");
  EXPECT_EQ(move_runs(), 0);
  for (int i = 0; i < kFiles; i++) EXPECT_TRUE(get(kStore + file(i)) == content(i)) << i;
  EXPECT_EQ(left(), Texts{});
}

// Kills the daemon's processes as init does when the main process is gone.
void end_children() {
  pid_t pids[64];
  for (int count; (count = list_children(pids, 64)) > 0;) {
    for (int i = 0; i < count; i++) {
      signal_one(pids[i], SIGKILL);
      waitpid(pids[i], nullptr, 0);
    }
  }
}

pid_t find_mv() {
  for (const std::string& name : list("/proc")) {
    const pid_t pid = atoi(name.c_str());
    if (pid > 0 && get("/proc/" + name + "/cmdline").compare(0, 3, "mv") == 0) return pid;
  }
  return 0;
}

TEST_F(LinkedMoves, AKillAtAnyMomentLosesNothing) {
  constexpr int kMoments = 10;
  for (const bool kill_mv : {false, true}) {
    for (int moment = 0; moment < kMoments && !HasFailure(); moment++) {
      capture();
      std::filesystem::remove_all(std::string(kStore) + "7#run");
      const int64_t before = available("/sdcard");
      const pid_t daemon = fork();
      if (daemon == 0) {
        s_harrowmossd_pid = getpid();
        move_runs();
        _exit(0);
      }
      const int64_t arrived = moment * static_cast<int64_t>(kFiles * kFileBytes) / kMoments;
      eventually([&] { return find_mv() != 0 || !exists(std::string(kWork) + "7#run"); });
      while (before - available("/sdcard") < arrived && is_running(daemon)) sched_yield();
      const pid_t victim = kill_mv ? find_mv() : daemon;
      signal_one(victim, SIGKILL);
      waitpid(daemon, nullptr, 0);
      end_children();
      settle_moves();
      expect_whole();
    }
  }
}

TEST_F(LinkedMoves, LeftoversOfAnEarlierProcessAreResolved) {
  const std::string linking = std::string(kWork) + ".linking-7#run";
  const std::string moving = std::string(kWork) + ".moving-7#run";
  const auto link_all = [&](const std::string& tree, int count) {
    std::filesystem::create_directories(tree + "/mobile");
    for (int i = 0; i < count; i++) {
      const std::string link = tree + "/mobile/f" + std::to_string(i);
      ASSERT_EQ(::link((kWork + file(i)).c_str(), link.c_str()), 0);
    }
  };
  link_all(linking, 3);  // incomplete; the source is complete
  settle_moves();
  expect_whole();
  EXPECT_EQ(list(std::string(kWork) + "7#run/mobile").size(), static_cast<size_t>(kFiles));

  link_all(moving, kFiles);  // four have arrived, one in part
  std::filesystem::remove_all(std::string(kWork) + "7#run");
  for (int i = 0; i < 5; i++)
    put(kStore + file(i), content(i).substr(0, i == 4 ? 10 : std::string::npos));
  settle_moves();
  EXPECT_EQ(incomplete(), 1);
  expect_whole();
  EXPECT_EQ(list(std::string(kStore) + "7#run/mobile"), (Texts{"f0", "f1", "f2", "f3"}));
  EXPECT_EQ(list(std::string(kWork) + "7#run/mobile"), (Texts{"f4", "f5", "f6", "f7"}));
  EXPECT_EQ(mode_and_owner(std::string(kWork) + "7#run"), "0777 1015:1015");

  capture();
  link_all(moving, kFiles);
  std::filesystem::remove_all(std::string(kWork) + "7#run");
  put(kStore + file(4), "part");
  remove_sdcard();
  settle_moves();
  for (int i = 0; i < kFiles; i++) EXPECT_TRUE(get(kWork + file(i)) == content(i)) << i;
  expect_no_tree();
  EXPECT_EQ(get("/data/media/0/zelkalog/" + file(4)), "part");  // nothing is removed in the store
}

TEST_F(LinkedMoves, ATreeDeeperThanAnyPathIsMeasuredAndMoved) {
  constexpr int kLevels = 60;
  const std::string name(200, 'd');
  const auto size_in = [&](const std::string& root) {
    int result = chdir(root.c_str());
    for (int level = 0; level < kLevels && result == 0; level++) result = chdir(name.c_str());
    const int64_t size = result == 0 ? size_of("file") : -1;
    EXPECT_EQ(chdir("/"), 0);
    return size;
  };
  std::filesystem::remove_all(std::string(kWork) + "7#run");
  std::filesystem::create_directories(std::string(kWork) + "8#deep");
  ASSERT_EQ(chdir((std::string(kWork) + "8#deep").c_str()), 0);
  for (int level = 0; level < kLevels; level++)
    ASSERT_EQ(mkdir(name.c_str(), 0777) + chdir(name.c_str()), 0);
  put_bytes("./file", 20 << 20);
  resize("/data/media/0", "10m");
  EXPECT_NE(move_runs(), 0);
  EXPECT_EQ(size_in(std::string(kWork) + "8#deep"), 20 << 20);
  EXPECT_FALSE(exists(std::string(kStore) + "8#deep"));
  resize("/data/media/0", "40m");
  EXPECT_EQ(move_runs(), 0);
  EXPECT_EQ(size_in(std::string(kStore) + "8#deep"), 20 << 20);
  EXPECT_EQ(left(), Texts{});
}

// Another file system in the run: it cannot be linked, as on a /data without hard links.
TEST_F(LinkedMoves, WithoutHardLinksTheRoomDecides) {
  const std::string mobile = std::string(kWork) + "7#run/mobile";
  ASSERT_EQ(mount("tmpfs", mobile.c_str(), "tmpfs", 0, "size=64m"), 0);
  capture();
  resize("/data/media/0", "8m");
  EXPECT_NE(move_runs(), 0);
  EXPECT_EQ(list(mobile).size(), static_cast<size_t>(kFiles));
  resize("/data/media/0", "64m");
  move_runs();  // its mount point stays, so the move is incomplete
  EXPECT_EQ(
      logged("W no second names for /data/misc/zelkalog/7#run: " + std::string(strerror(EXDEV))),
      1);
  for (int i = 0; i < kFiles; i++) EXPECT_TRUE(get(kStore + file(i)) == content(i)) << i;
  expect_no_tree();
}

// No space for links, or an earlier link that could not be resolved.
TEST_F(LinkedMoves, OneNameWithoutLinksDoesNotAffectOthers) {
  const std::string longest = "8#" + std::string(253, 'x'), seen = "/data/local/tmp/seen";
  put(kWork + longest + "/f", "long");
  put(std::string(kWork) + ".moving-9#file/f", "older");
  put(std::string(kWork) + "9#file", "newer");
  hook_into_mv("ls -d /data/misc/zelkalog/.moving-* > " + seen, "");
  EXPECT_EQ(move_runs(), 0);
  EXPECT_EQ(get(seen), std::string(kWork) + ".moving-7#run\n" + kWork + ".moving-9#file\n");
  for (int i = 0; i < kFiles; i++) EXPECT_TRUE(get(kStore + file(i)) == content(i)) << i;
  EXPECT_EQ(get(kStore + longest + "/f"), "long");
  EXPECT_EQ(get(std::string(kStore) + "9#file"), "newer");
  EXPECT_EQ(get(std::string(kWork) + ".moving-9#file/f"), "older");
  EXPECT_EQ(logged_beginning("W no second names for /data/misc/zelkalog/"), 1);
}

// With one run, mv would rename it to the store's name.
TEST_F(LinkedMoves, AMissingTargetKeepsTheSource) {
  remove_sdcard();
  EXPECT_EQ(move_runs(), -1);
  EXPECT_EQ(logged("E /sdcard/zelkalog/ is missing, /data/misc/zelkalog/* stays"), 1);
  EXPECT_EQ(calls_of("/system/bin/mv"), std::vector<Texts>{});
  for (int i = 0; i < kFiles; i++) EXPECT_TRUE(get(kWork + file(i)) == content(i)) << i;
}

// Where /sdcard shares its space with /data, links keep the space that mv frees.
TEST_F(LinkedMoves, InOnePoolLinksAreMadeOnlyWhereThereIsRoomForThem) {
  make_one_pool();
  const std::string seen = "/data/local/tmp/seen";
  hook_into_mv("ls -d /data/misc/zelkalog/.moving-* > " + seen + " 2>/dev/null", "");
  // The run has 16 MiB in files of 2 MiB; 128 MiB stay free.
  const struct {
    const char* size;
    bool moves, links;
  } rows[] = {{"140m", false, false}, {"155m", true, false}, {"170m", true, true}};
  for (const auto& row : rows) {
    std::filesystem::remove_all(std::string(kStore) + "7#run");
    capture();
    unlink(seen.c_str());
    resize("/data", row.size);
    EXPECT_EQ(move_runs() == 0, row.moves) << row.size;
    EXPECT_EQ(exists(seen), row.moves) << row.size;
    EXPECT_EQ(!get(seen).empty(), row.links) << row.size;
    expect_whole();
  }
}

TEST_F(LinkedMoves, TreesDoNotCountAndAreRemovedWithTheirRun) {
  const auto content_bytes = [] {
    struct stat own;
    return stat(kWork, &own) == 0 ? getFileSize(kWork) - own.st_size : -1;
  };
  const int64_t before = content_bytes();
  for (const char* name : {".moving-7#run", ".linking-8#run", ".moving-9#run"})
    put(std::string(kWork) + name + "/mobile/f", "12345");
  EXPECT_EQ(content_bytes(), before);
  remove_move_trees(kWork, "8#run");
  EXPECT_EQ(left(), (Texts{".moving-7#run", ".moving-9#run", "7#run"}));
  remove_move_trees(kWork, nullptr);
  EXPECT_EQ(left(), Texts{"7#run"});
}

}  // namespace
