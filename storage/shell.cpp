#include "storage/shell.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "base/beneath.h"
#include "base/process.h"
#include "base/scoped.h"
#include "model/paths.h"
#include "selflog/log.h"
#include "storage/measure.h"
#include "storage/size_monitor.h"

namespace {

constexpr char kLogSource[] = "utils";
constexpr char kPlainBytes[] =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._/@%+=:,#-";

// Appends `word`; false for a newline.
bool append_escaped(std::string* out, const std::string& word) {
  for (const char* p = word.c_str(); *p != '\0'; p++) {
    if (*p == '\n') return false;
    if (static_cast<unsigned char>(*p) < 0x80 && strchr(kPlainBytes, *p) == nullptr) *out += '\\';
    *out += *p;
  }
  return true;
}

// Forks a shell for `command`, its standard output on `out_fd` unless that is -1. A file that it
// makes longer than `file_bytes` ends the writer.
pid_t start_shell(const ShellText& command, Group where, int out_fd,
                  int64_t file_bytes = kUnbounded) {
  if (!command.may_run()) return -1;
  const pid_t pid = fork_process(where);
  if (pid != 0) return pid;
  if (out_fd >= 0) dup2(out_fd, STDOUT_FILENO);
  if (file_bytes != kUnbounded) {
    rlimit most;
    getrlimit(RLIMIT_FSIZE, &most);
    most.rlim_cur = static_cast<rlim_t>(file_bytes);  // SELinux may forbid a new hard limit
    setrlimit(RLIMIT_FSIZE, &most);
  }
  execl(kShell, "sh", "-c", command.c_str(), static_cast<char*>(nullptr));
  end_process(127);  // what system() reports when there is no shell
}

// Time for a killed process to end; one stuck in the kernel is left to the reaper.
constexpr int kKillMs = 1000;

// Ends what has passed a bound.
void end_tool(pid_t pid) {
  kill_tree(pid);
  wait_within(pid, kKillMs, nullptr);
}

// Gathers bytes into lines of at most `size` - 1 bytes.
struct LineCutter {
  char* buffer;
  size_t size;
  size_t used;
  void (*on_line)(void* context, const char* line);
  void* context;

  void flush() {
    if (used == 0) return;
    buffer[used] = '\0';
    on_line(context, buffer);
    used = 0;
  }
  void add(const char* bytes, size_t count) {
    for (size_t i = 0; i < count; i++) {
      buffer[used++] = bytes[i];
      if (bytes[i] == '\n' || used == size - 1) flush();
    }
  }
};

enum class Reading { kOver, kLate, kTooMuch };

// Reads `fd` into `lines` until end-of-file, until `deadline` (monotonic ms) has passed, or more
// than `most` bytes have come. The end of the tool `pid` itself ends it too: a background process
// that keeps the pipe open does not.
Reading read_lines(int fd, pid_t pid, int64_t deadline, int64_t most, LineCutter* lines) {
  bool ended = false;
  for (;;) {
    pollfd wait = {fd, POLLIN, 0};
    const int64_t left = deadline - monotonic_ms();
    if (left <= 0) return ended ? Reading::kOver : Reading::kLate;
    const int ready = poll(&wait, 1, ended ? 0 : static_cast<int>(left < 100 ? left : 100));
    if (ready > 0) {
      char bytes[4096];
      const ssize_t got = read(fd, bytes, sizeof(bytes));
      if (got == 0 || (got < 0 && errno != EINTR)) return Reading::kOver;
      if (got > most) return Reading::kTooMuch;
      if (got > 0) lines->add(bytes, static_cast<size_t>(got));
      if (got > 0) most -= got;
    } else if (ready == 0) {
      if (ended) return Reading::kOver;
      siginfo_t info;
      info.si_pid = 0;
      ended = waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT) != 0 ||
              info.si_pid == pid;
    }
  }
}

// Elsewhere than in the main process the shell stays in its caller's group, so that it ends with
// it.
Group shell_group() {
  return is_main_process() ? Group::kNew : Group::kInherit;
}

// A bounded tool is killed with all that it started, so it leads a group; but not in a worker,
// whose own bound may come first and must reach the tool.
Group tool_group() {
  const bool runs_logging = is_main_process() || getpid() == s_logsize_monitor_pid;
  return runs_logging ? Group::kNew : Group::kInherit;
}

// Whether the shell or its command was ended by the limit of a file's size.
bool wrote_too_much(int status) {
  return (WIFSIGNALED(status) && WTERMSIG(status) == SIGXFSZ) ||
         (WIFEXITED(status) && WEXITSTATUS(status) == 128 + SIGXFSZ);
}

void say_it_is_too_much(int64_t most, const ShellText& command) {
  LOGE_AS("end_tool", "tool writes more than %lld bytes, kill it: %s", static_cast<long long>(most),
          command.c_str());
}

void say_it_is_late(int bound_ms, const ShellText& command) {
  LOGE_AS("end_tool", "tool does not end within %d s, kill it: %s", bound_ms / 1000,
          command.c_str());
}

}  // namespace

ShellText::ShellText(FixedText text) : text_(text.get()) {}
ShellText::ShellText(const ShellText&) = default;
ShellText::~ShellText() = default;

ShellText& ShellText::raw(FixedText text) {
  text_ += text.get();
  return *this;
}

ShellText& ShellText::arg(const std::string& word) {
  text_ += ' ';
  can_be_given_ = append_escaped(&text_, word) && can_be_given_;
  return *this;
}

ShellText& ShellText::pattern(const std::string& source) {
  std::string dir;
  if (!pattern_directory(source.c_str(), &dir)) return arg(source);
  arg(dir);
  text_ += '*';
  return *this;
}

ShellText& ShellText::target(const std::string& path) {
  targets_.push_back(path);
  return arg(path);
}

ShellText& ShellText::removal(const std::string& source) {
  targets_.push_back(directory_of(source));
  return pattern(source);
}

bool ShellText::may_run() const {
  if (!can_be_given_) LOGE("name cannot be given to the shell: %s", text_.c_str());
  for (const std::string& target : targets_) {
    if (!is_trap(target.c_str())) continue;
    LOGE("a link or no file is in the way of %s, not run: %s", target.c_str(), text_.c_str());
    return false;
  }
  return can_be_given_;
}

std::string directory_of(const std::string& path) {
  const size_t slash = path.find_last_of('/');
  return slash == std::string::npos ? "." : path.substr(0, slash + 1);
}

SeriesBudget::SeriesBudget(const char* what, int bound_ms)
    : what_(what), bound_ms_(bound_ms), deadline_(monotonic_ms() + bound_ms) {}

int SeriesBudget::left() {
  const int64_t left = deadline_ - monotonic_ms();
  if (left > 0) return static_cast<int>(left);
  if (!said_) LOGE("%s takes longer than %d s, the rest is skipped", what_, bound_ms_ / 1000);
  said_ = true;
  return 0;
}

void exec_shell(const char* file, const char* name, const ShellText& command) {
  if (!command.may_run()) end_process(0);
  execlp(file, name, "-c", command.c_str(), static_cast<char*>(nullptr));
}

int run_shell(const ShellText& command) {
  const pid_t pid = start_shell(command, shell_group(), -1);
  int status = -1;
  if (pid == -1 || wait_for(pid, &status) == -1) return -1;
  return status;
}

int run_program(const char* const argv[]) {
  const pid_t pid = fork_process(shell_group());
  if (pid == 0) {
    execv(argv[0], const_cast<char* const*>(argv));
    end_process(127);
  }
  int status = -1;
  if (pid == -1 || wait_for(pid, &status) == -1) return -1;
  return status;
}

int run_tool(const ShellText& command, int64_t file_bytes) {
  const pid_t pid = start_shell(command, tool_group(), -1, file_bytes);
  if (pid == -1) return -1;
  int status = -1;
  const pid_t reaped = wait_within(pid, kToolBoundMs, &status);
  if (reaped == 0) {
    say_it_is_late(kToolBoundMs, command);
    end_tool(pid);
  }
  if (reaped == pid && wrote_too_much(status)) say_it_is_too_much(file_bytes, command);
  return reaped == pid ? status : -1;
}

int run_shell_lines(const ShellText& command, int bound_ms, char* buffer, size_t size,
                    void (*on_line)(void* context, const char* line), void* context) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return -1;
  ScopedFd read_end(ends[0]);
  ScopedFd write_end(ends[1]);
  const pid_t pid = start_shell(command, shell_group(), write_end.get());
  if (pid == -1) return -1;
  write_end.reset();
  LineCutter lines = {buffer, size, 0, on_line, context};
  const int64_t deadline = bound_ms == kUnbounded ? INT64_MAX : monotonic_ms() + bound_ms;
  const int64_t most = bound_ms == kUnbounded ? INT64_MAX : kOutputBytes;
  const Reading result = read_lines(read_end.get(), pid, deadline, most, &lines);
  lines.flush();
  read_end.reset();  // first: a tool that still writes gets SIGPIPE instead of a full pipe
  const int64_t left = deadline - monotonic_ms();
  if (bound_ms == kUnbounded) {
    wait_for(pid, nullptr);
  } else if (result == Reading::kTooMuch) {
    say_it_is_too_much(most, command);
    end_tool(pid);
  } else if (result == Reading::kLate ||
             wait_within(pid, left > 0 ? static_cast<int>(left) : 0, nullptr) == 0) {
    say_it_is_late(bound_ms, command);
    end_tool(pid);
  }
  return 0;
}
