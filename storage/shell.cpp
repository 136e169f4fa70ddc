#include "storage/shell.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include "base/process.h"
#include "base/scoped.h"
#include "selflog/log.h"
#include "storage/size_monitor.h"

namespace {

constexpr char kLogSource[] = "utils";
constexpr char kPlainBytes[] =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._/@%+=:,#-";

// Forks a shell for `command`, its standard output on `out_fd` unless that is -1.
pid_t start_shell(const char* command, group where, int out_fd) {
  const pid_t pid = fork_process(where);
  if (pid != 0) return pid;
  if (out_fd >= 0) dup2(out_fd, STDOUT_FILENO);
  execl(kShell, "sh", "-c", command, static_cast<char*>(nullptr));
  end_process(127);  // what system() reports when there is no shell
}

constexpr int kKillMs =
    1000;  // for a killed process to go; one stuck in the kernel is left to the reaper

// Ends what outlived its bound.
void end_tool(pid_t pid, int bound_ms, const char* command) {
  LOGE("tool does not end within %d s, kill it: %s", bound_ms / 1000, command);
  kill_with_descendants(pid);
  wait_within(pid, kKillMs, nullptr);
}

// Gathers bytes into lines of at most `size` - 1 bytes.
struct line_cutter {
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

// Reads `fd` into `lines` until end-of-file; false when `deadline` (monotonic ms) passes first. The
// end of the tool `pid` itself ends it too: a background process that keeps the pipe open does not.
bool read_lines(int fd, pid_t pid, int64_t deadline, line_cutter* lines) {
  bool ended = false;
  for (;;) {
    pollfd wait = {fd, POLLIN, 0};
    const int64_t left = deadline - monotonic_ms();
    if (left <= 0) return ended;
    const int ready = poll(&wait, 1, ended ? 0 : static_cast<int>(left < 100 ? left : 100));
    if (ready > 0) {
      char bytes[4096];
      const ssize_t got = read(fd, bytes, sizeof(bytes));
      if (got > 0) lines->add(bytes, static_cast<size_t>(got));
      if (got == 0 || (got < 0 && errno != EINTR)) return true;
    } else if (ready == 0) {
      if (ended) return true;
      siginfo_t info;
      info.si_pid = 0;
      ended = waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT) != 0 ||
              info.si_pid == pid;
    }
  }
}

// Elsewhere than in the main process the shell stays in its caller's group, so that it ends with
// it.
group shell_group() {
  return is_main_process() ? group::own : group::inherit;
}

// A bounded tool is killed with all that it started, so it leads a group; but not in a worker,
// whose own bound may come first and must reach the tool.
group tool_group() {
  const bool runs_logging = is_main_process() || getpid() == s_logsize_monitor_pid;
  return runs_logging ? group::own : group::inherit;
}

}  // namespace

int run_shell(const char* command) {
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

int run_tool(const char* command) {
  const pid_t pid = start_shell(command, tool_group(), -1);
  if (pid == -1) return -1;
  int status = -1;
  const pid_t reaped = wait_within(pid, kToolBoundMs, &status);
  if (reaped == 0) end_tool(pid, kToolBoundMs, command);
  return reaped == pid ? status : -1;
}

int run_shell_lines(const char* command, int bound_ms, char* buffer, size_t size,
                    void (*on_line)(void* context, const char* line), void* context) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return -1;
  scoped_fd read_end(ends[0]);
  scoped_fd write_end(ends[1]);
  const pid_t pid = start_shell(command, shell_group(), write_end.get());
  if (pid == -1) return -1;
  write_end.reset();
  line_cutter lines = {buffer, size, 0, on_line, context};
  const int64_t deadline = bound_ms == kUnbounded ? INT64_MAX : monotonic_ms() + bound_ms;
  const bool in_time = read_lines(read_end.get(), pid, deadline, &lines);
  lines.flush();
  read_end.reset();  // first: a tool that still writes gets SIGPIPE instead of a full pipe
  const int64_t left = deadline - monotonic_ms();
  if (bound_ms == kUnbounded) {
    wait_for(pid, nullptr);
  } else if (!in_time || wait_within(pid, left > 0 ? static_cast<int>(left) : 0, nullptr) == 0) {
    end_tool(pid, bound_ms, command);
  }
  return 0;
}

bool append_escaped(std::string* out, const char* name) {
  for (const char* p = name; *p != '\0'; p++) {
    if (*p == '\n') return false;
    if (static_cast<unsigned char>(*p) < 0x80 && strchr(kPlainBytes, *p) == nullptr) *out += '\\';
    *out += *p;
  }
  return true;
}
