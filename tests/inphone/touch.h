// A recorder in a child process, and events from the devices that it records. The phone must be
// booted with --input.
#pragma once

#include "input/touch_recorder.h"
#include "phone/input/control.h"
#include "tests/inphone/inphone.h"

namespace inphone {

constexpr char kTouchDir[] = "/data/touch";
constexpr char kEventFile[] = "/data/touch/event.txt";
constexpr char kStderrFile[] = "/data/stderr";

// Runs `finger` with `script` as its input and returns its exit status.
inline int finger(const std::string& script) {
  FILE* input = popen("/system/bin/finger > /data/finger.out", "we");
  fwrite(script.data(), 1, script.size(), input);
  const int status = pclose(input);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Node -> number of readers.
inline std::vector<std::pair<std::string, int>> readers() {
  EXPECT_EQ(finger("list\n"), 0);
  std::vector<std::pair<std::string, int>> found;
  for (const std::string& line : lines_of(get("/data/finger.out"))) {
    const size_t blank = line.find(' ');
    found.emplace_back(line.substr(0, blank), atoi(line.c_str() + blank));
  }
  return found;
}

// The event file's lines without their time stamps, which are checked.
inline Texts without_stamps(const std::string& text) {
  Texts lines;
  for (const std::string& line : lines_of(text)) {
    int length = 0;
    int part[6];
    long microseconds;
    if (sscanf(line.c_str(), "%4d-%2d-%2d %2d:%2d:%2d:%ld%n", part, part + 1, part + 2, part + 3,
               part + 4, part + 5, &microseconds, &length) != 7) {
      lines.push_back(line);  // a removal
      continue;
    }
    EXPECT_EQ(line.substr(static_cast<size_t>(length), 2), "  ") << line;
    EXPECT_LT(microseconds, 1000000) << line;
    lines.push_back(line.substr(static_cast<size_t>(length) + 2));
  }
  return lines;
}

class TouchRecorder : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(exists(kInputSocket)) << "boot the phone with --input";
    ASSERT_EQ(mkdir(kTouchDir, 0777), 0);
  }
  void TearDown() override {
    if (recorder_ > 0) {
      signal_one(recorder_, SIGKILL);
      waitpid(recorder_, nullptr, 0);
      recorder_ = -1;
    }
  }

  // Starts the recorder; it is recording when this returns.
  void record(const char* dir = kTouchDir) {
    const long before = logged_beginning("E gettouchlog, nfds:");
    begin(dir);
    ASSERT_TRUE(eventually([&] { return logged_beginning("E gettouchlog, nfds:") > before; }));
  }

  // Starts the recorder only. It ends with gettouchlog()'s result.
  void begin(const char* dir = kTouchDir, bool wanted = true) {
    recorder_ = fork();
    if (recorder_ == 0) be_recorder(dir, wanted);
  }
  [[noreturn]] static void be_recorder(const char* dir, bool wanted) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int fd = open(kStderrFile, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    dup2(fd, STDERR_FILENO);
    char output[256];
    snprintf(output, sizeof(output), "%s", dir);
    if (wanted) start_tp_log();
    _exit(gettouchlog(output));
  }

  // The recorder's exit status; -1 when it does not end.
  int end_status() {
    int status = -1;
    if (!eventually([&] { return waitpid(recorder_, &status, WNOHANG) == recorder_; })) return -1;
    recorder_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }

  static Texts events() { return without_stamps(get(kEventFile)); }

  // The event file's lines, once there are `count`.
  static Texts wait_for_events(size_t count, int limit_ms = kOwedMs) {
    EXPECT_TRUE(eventually(
        [=] {
          const std::string text = get(kEventFile);
          return std::count(text.begin(), text.end(), '\n') >= static_cast<ptrdiff_t>(count);
        },
        limit_ms));
    return events();
  }

  // CPU time of the recorder in nanoseconds.
  int64_t cpu_ns() const {
    return atoll(get("/proc/" + std::to_string(recorder_) + "/schedstat").c_str());
  }

  pid_t recorder_ = -1;
};

}  // namespace inphone
