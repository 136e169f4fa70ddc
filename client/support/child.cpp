#include "client/support/child.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "client/support/deadline.h"

namespace {

// The child's body: standard streams, then the tool. Only calls that are safe after a fork.
[[noreturn]] void become(const ChildSetup& setup, char* const* argv, pid_t parent) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);     // without us its output is lost
  if (getppid() != parent) _exit(127);  // the parent died before the prctl()
  const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
  dup2(setup.in == -1 ? null : setup.in, STDIN_FILENO);
  dup2(setup.out == -1 ? null : setup.out, STDOUT_FILENO);
  if (setup.quiet) dup2(null, STDERR_FILENO);
  for (const int fd : setup.kept) fcntl(fd, F_SETFD, 0);
  execv(argv[0], argv);
  _exit(127);
}

}  // namespace

pid_t start_child(const ChildSetup& setup) {
  std::vector<char*> argv;
  for (const std::string& word : setup.argv) argv.push_back(const_cast<char*>(word.c_str()));
  argv.push_back(nullptr);
  const pid_t parent = getpid();
  const pid_t pid = fork();
  if (pid == 0) become(setup, argv.data(), parent);
  return pid;
}

int wait_child(pid_t pid) {
  int status = 0;
  while (waitpid(pid, &status, 0) == -1) {
    if (errno != EINTR) return -1;
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

int read_child(ChildSetup setup, std::chrono::milliseconds limit,
               const std::function<void(std::string_view)>& take) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return -1;
  setup.out = ends[1];
  const pid_t pid = start_child(setup);
  close(ends[1]);
  bool in_time = true;
  const SteadyTime deadline = after(limit);
  for (ssize_t got = 1; pid != -1 && got != 0;) {
    pollfd entry = {ends[0], POLLIN, 0};
    const int ready = poll(&entry, 1, left_ms(deadline));
    if (ready == -1 && errno == EINTR) continue;
    in_time = ready > 0;
    if (!in_time) break;
    char bytes[16384];
    got = read(ends[0], bytes, sizeof bytes);
    if (got > 0) take(std::string_view(bytes, static_cast<size_t>(got)));
    if (got == -1 && errno != EINTR) break;
  }
  close(ends[0]);
  if (pid == -1) return -1;
  if (!in_time) kill(pid, SIGKILL);
  const int status = wait_child(pid);
  return in_time ? status : -2;
}
