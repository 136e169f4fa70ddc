// Helpers for tests inside a bench phone. Each test has a phone of its own, which is discarded:
// nothing is cleaned up.
#pragma once

#include <cutils/properties.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "base/process.h"
#include "phone/tools/journal.h"
#include "phone/wait.h"
#include "platform/linux/log_record.h"
#include "platform/linux/property_area.h"

namespace inphone {

using Texts = std::vector<std::string>;

// The whole file, "" when missing.
inline std::string get(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

// Creates the file `path` and its parents.
inline void put(const std::string& path, const std::string& text) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << text;
  file.close();
  ASSERT_TRUE(file.good()) << path;
}

// Creates a file of `size` allocated bytes.
inline void put_bytes(const std::string& path, off_t size) {
  put(path, "");
  const int fd = open(path.c_str(), O_WRONLY | O_CLOEXEC);
  EXPECT_TRUE(size == 0 || posix_fallocate(fd, 0, size) == 0) << path << " " << size;
  close(fd);
}

inline bool exists(const std::string& path) {
  struct stat info;
  return lstat(path.c_str(), &info) == 0;
}

// The names in `dir`, sorted.
inline Texts list(const std::string& dir) {
  Texts names;
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator(dir, ignored))
    names.push_back(entry.path().filename());
  std::sort(names.begin(), names.end());
  return names;
}

// st_size of the target of `path`; -1 when it is missing.
inline int64_t size_of(const std::string& path) {
  struct stat info;
  return stat(path.c_str(), &info) == 0 ? info.st_size : -1;
}

// "0777 1015:1015", or "missing".
inline std::string mode_and_owner(const std::string& path) {
  struct stat info;
  if (lstat(path.c_str(), &info) != 0) return "missing";
  char text[64];
  snprintf(text, sizeof(text), "%04o %u:%u", info.st_mode & 07777, info.st_uid, info.st_gid);
  return text;
}

inline int64_t available(const char* mount) {
  struct statfs info = {};
  statfs(mount, &info);
  return static_cast<int64_t>(info.f_bsize) * static_cast<int64_t>(info.f_bavail);
}

// Fills the file system of `mount` until exactly `left` bytes (whole blocks) are available.
inline void fill_up_to(const char* mount, int64_t left) {
  const std::string file = std::string(mount) + "/filler";
  put(file, "");
  put_bytes(file, available(mount) - left);
  ASSERT_EQ(available(mount), left);
}

inline Texts lines_of(const std::string& text) {
  Texts lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

// The recorded calls of the stand-in `program`, in order.
inline std::vector<Texts> calls_of(const std::string& program) {
  std::vector<Texts> found;
  for (BenchCall& call : calls_in(get(kCallsLog), program)) found.push_back(std::move(call.argv));
  return found;
}

// The "-n" of the main buffer's debug logcats, in start order.
inline Texts counts_of_main() {
  Texts counts;
  for (const Texts& argv : calls_of("/system/bin/logcat"))
    if (argv[0] == "harrowmossd:debug-main-vesk") counts.push_back(argv.back());
  return counts;
}

// The texts that the daemon ran by `sh -c`, in order.
inline Texts shell_commands() {
  return shell_commands_in(get(kCallsLog));
}

// The elements of `all` after the first `count`.
inline Texts texts_since(const Texts& all, size_t count) {
  return Texts(all.begin() + static_cast<ptrdiff_t>(std::min(count, all.size())), all.end());
}

// "key=value" of every property set since boot, in order.
inline Texts properties_set() {
  Texts sets;
  for (const std::string& line : lines_of(get("/dev/bench/properties.log")))
    sets.push_back(line.substr(line.find(' ') + 1));
  return sets;
}

// Calls and sets since this was created.
class PropertiesSince {
 public:
  PropertiesSince() : before_(properties_set().size()) {}
  Texts sets() const { return texts_since(properties_set(), before_); }

 private:
  size_t before_;
};

inline std::string prop(const char* key) {
  char value[PROPERTY_VALUE_MAX] = {};
  property_get(key, value, "");
  return value;
}

inline void setprop(const char* key, const std::string& value) {
  ASSERT_EQ(property_set(key, value.c_str()), 0) << key;
}

// Runs `body` in a child with only `properties`, so that each row of a table can set a read-only
// property. Call before this process has read a property. Returns the text that `body` returns.
inline std::string with_properties(
    const std::vector<std::pair<std::string, std::string>>& properties,
    const std::function<std::string()>& body) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) abort();
  const pid_t pid = fork();
  if (pid == 0) {
    PropertyArea area;
    bool ok = area.create();
    for (const auto& [key, value] : properties) {
      ok = ok && property_set(key.c_str(), value.c_str()) == 0 && prop(key.c_str()) == value;
    }
    const std::string text = ok ? body() : "(no properties)";
    (void)!write(ends[1], text.data(), text.size());
    _exit(0);
  }
  close(ends[1]);
  std::string text;
  char bytes[4096];
  for (ssize_t got; (got = read(ends[0], bytes, sizeof(bytes))) > 0;)
    text.append(bytes, static_cast<size_t>(got));
  close(ends[0]);
  waitpid(pid, nullptr, 0);
  return text;
}

struct LogLine {
  int priority;
  std::string tag, message;
};

// The records of the Android log's main buffer.
inline std::vector<LogLine> android_log() {
  const std::string bytes = get(std::string(kLogDirectory) + "/main");
  std::vector<LogLine> lines;
  for (size_t at = 0; at + sizeof(LogRecord) <= bytes.size();) {
    LogRecord record;
    memcpy(&record, bytes.data() + at, sizeof(record));
    if (record.magic != kLogRecordMagic) break;
    const char* tag = bytes.data() + at + sizeof(record);
    lines.push_back({record.priority, tag, tag + strlen(tag) + 1});
    at += (sizeof(record) + record.size + 3) / 4 * 4;
  }
  return lines;
}

// The daemon's messages as "D text": priority letter, and the text after "file|function|line:: ".
inline Texts log_texts() {
  Texts texts;
  for (const LogLine& line : android_log()) {
    const size_t cut = line.message.find(":: ");
    texts.push_back(std::string(1, "??VDIWEFS"[line.priority]) + " " +
                    (cut == std::string::npos ? line.message : line.message.substr(cut + 3)));
  }
  return texts;
}

// How many messages equal `text`, in the form of log_texts().
inline long logged(const std::string& text) {
  const Texts texts = log_texts();
  return std::count(texts.begin(), texts.end(), text);
}

// How many messages of `function` equal `text`, without the priority.
inline long logged_by(const std::string& function, const std::string& text) {
  const auto lines = android_log();
  return std::count_if(lines.begin(), lines.end(), [&](const LogLine& line) {
    const size_t cut = line.message.find(":: ");
    return cut != std::string::npos && line.message.substr(cut + 3) == text &&
           line.message.substr(0, cut).find("|" + function + "|") != std::string::npos;
  });
}

// How many begin with `start`.
inline long logged_beginning(const std::string& start) {
  const Texts texts = log_texts();
  return std::count_if(texts.begin(), texts.end(), [&](const std::string& text) {
    return text.compare(0, start.size(), start) == 0;
  });
}

// While it exists, opening a descriptor fails with EMFILE.
class NoDescriptors {
 public:
  NoDescriptors() {
    getrlimit(RLIMIT_NOFILE, &before_);
    const rlimit none = {0, before_.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
  }
  ~NoDescriptors() { setrlimit(RLIMIT_NOFILE, &before_); }

 private:
  rlimit before_;
};

// Runs `body` in a forked child and returns its wait status.
inline int status_in_child(const std::function<int()>& body) {
  const pid_t pid = fork_process(Group::kInherit);
  if (pid == 0) _exit(body());
  int status = -1;
  wait_for(pid, &status);
  return status;
}

inline bool is_running(pid_t pid) {
  return signal_one(pid, 0) &&
         get("/proc/" + std::to_string(pid) + "/stat").find(") Z") == std::string::npos;
}

// A child blocked on a pipe; the destructor kills and reaps it.
class ParkedChild {
 public:
  struct Traits {
    bool ignores_term = false;
    bool own_group = false;
  };
  ParkedChild() : ParkedChild(Traits{}) {}
  explicit ParkedChild(Traits traits) {
    int ready[2];
    if (pipe2(gate_, O_CLOEXEC) != 0 || pipe2(ready, O_CLOEXEC) != 0) abort();
    pid_ = fork();
    if (pid_ == 0) park(traits, ready[1]);
    close(ready[1]);
    char byte;
    (void)!read(ready[0], &byte, 1);  // the child has applied `traits`
    close(ready[0]);
  }
  ParkedChild(const ParkedChild&) = delete;
  ParkedChild& operator=(const ParkedChild&) = delete;
  ~ParkedChild() {
    signal_one(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
    close(gate_[0]);
    close(gate_[1]);
  }

  pid_t pid() const { return pid_; }
  // Lets the child end with status 0.
  void release() { (void)!write(gate_[1], "x", 1); }
  // Reaps it: the signal that ended it, 0 for an exit, -1 when it does not end.
  int end_signal() {
    int status = -1;
    if (!eventually([&] { return waitpid(pid_, &status, WNOHANG) == pid_; })) return -1;
    return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
  }

 private:
  [[noreturn]] void park(const Traits& traits, int ready) {
    for (const int sig : {SIGTERM, SIGCHLD, SIGALRM, SIGINT}) signal(sig, SIG_DFL);
    if (traits.ignores_term) signal(SIGTERM, SIG_IGN);
    if (traits.own_group) setpgid(0, 0);
    char byte;
    (void)!write(ready, "x", 1);
    (void)!read(gate_[0], &byte, 1);
    _exit(0);
  }

  int gate_[2];
  pid_t pid_ = -1;
};

// A worker that leads a group, and its child, which ignores SIGTERM and may have left the group.
inline std::pair<pid_t, pid_t> fork_with_stubborn_child(bool in_own_session) {
  int ends[2];
  if (pipe(ends) != 0) abort();
  const pid_t worker = fork_process(Group::kNew);
  if (worker == 0) {
    if (fork() == 0) {
      if (in_own_session) setsid();
      signal(SIGTERM, SIG_IGN);
      const pid_t self = getpid();  // last: the reader may send SIGTERM at once
      (void)!write(ends[1], &self, sizeof(self));
    }
    for (;;) pause();
  }
  pid_t child = -1;
  (void)!read(ends[0], &child, sizeof(child));
  return {worker, child};
}

// Makes this process the daemon's main process: the one that serves, and subreaper.
inline void become_main_process() {
  s_harrowmossd_pid = getpid();
  ASSERT_EQ(prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0), 0);
}

// Replaces a program of /system/bin with the mksh `script`; toybox still has the original.
inline void replace_program(const std::string& name, const std::string& script) {
  ASSERT_EQ(mount(nullptr, "/", nullptr, MS_REMOUNT | MS_BIND, nullptr), 0);
  unlink(("/system/bin/" + name).c_str());
  put("/system/bin/" + name, "#!/system/bin/mksh\n" + script + "\n");
  ASSERT_EQ(chmod(("/system/bin/" + name).c_str(), 0755), 0);
}

// /sdcard and /data share their space, as on a phone.
inline void make_one_pool() {
  ASSERT_EQ(umount("/sdcard"), 0);
  ASSERT_EQ(umount("/data/media/0"), 0);
  ASSERT_EQ(mount("/data/media/0", "/sdcard", nullptr, MS_BIND, nullptr), 0);
}

// Shared storage that is mounted read-only.
inline void make_sdcard_read_only() {
  ASSERT_EQ(mount(nullptr, "/sdcard", nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr), 0);
}

// Shared storage that is not mounted yet.
inline void remove_sdcard() {
  ASSERT_EQ(mount(nullptr, "/", nullptr, MS_REMOUNT | MS_BIND, nullptr), 0);
  ASSERT_EQ(umount("/sdcard"), 0);
  ASSERT_EQ(rmdir("/sdcard"), 0);
}

// SIGCHLD interrupts waits only where it has a handler, as in the daemon.
inline void catch_sigchld() {
  signal(SIGCHLD, [](int) {});
}

}  // namespace inphone
