// Replaces the daemon in a phone's .rc: installs a system call filter, starts a supervisor that
// answers for the kernel where a call is to fail, and executes the daemon. The daemon's binary is
// the shipped one and no library call is replaced: failures are those of the kernel.
//
// Affects only the daemon's processes, including forked children up to their exec. Failures inside
// a shell or stand-in are failures of a tool for the daemon, with tests of their own. Files of the
// bench (properties, log buffers, journal) never fail: on a phone other processes provide them.
#include <fcntl.h>
#include <linux/filter.h>
#include <linux/sched.h>
#include <linux/seccomp.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>

#include <algorithm>
#include <vector>

#include "phone/seccomp_architecture.h"
#include "phone/util.h"
#include "trials/fault_plan.h"

namespace {

// The condition under which a system call counts.
enum class Look {
  kAlways,   // number only: clone3() is used only for threads
  kProcess,  // clone() without CLONE_THREAD
  kThread,   // clone() with it
  kPath0,    // the path in the first argument
  kPath1,    // the path in the second one
  kFile,     // the descriptor in the first argument is a file
  kSocket,   // the descriptor in the first argument is a socket
};

struct NumberRow {
  const char* call;
  int number;
  Look look;
};
// clang-format off
constexpr NumberRow kCalls[] = {
    {"fork",    SYS_clone,      Look::kProcess},
    {"thread",  SYS_clone,      Look::kThread},
    {"thread",  SYS_clone3,     Look::kAlways},
    {"exec",    SYS_execve,     Look::kAlways},
    {"open",    SYS_openat,     Look::kPath1},
    {"list",    SYS_getdents64, Look::kFile},
    {"read",    SYS_read,       Look::kFile},
    {"write",   SYS_write,      Look::kFile},
    {"request", SYS_read,       Look::kSocket},
    {"reply",   SYS_write,      Look::kSocket},
    {"accept",  SYS_accept4,    Look::kAlways},
    {"socket",  SYS_socket,     Look::kAlways},
    {"pipe",    SYS_pipe2,      Look::kAlways},
    {"statfs",  SYS_statfs,     Look::kPath0},
    {"stat",    SYS_newfstatat, Look::kPath1},
    {"access",  SYS_faccessat,  Look::kPath1},
    {"mkdir",   SYS_mkdirat,    Look::kPath1},
    {"rename",  SYS_renameat,   Look::kPath1},
    {"link",    SYS_linkat,     Look::kPath1},
    {"unlink",  SYS_unlinkat,   Look::kPath1},
    {"syncfs",  SYS_syncfs,     Look::kFile},
    {"owner",   SYS_fchownat,   Look::kPath1},
    {"owner",   SYS_fchown,     Look::kFile},
    {"owner",   SYS_fchmodat,   Look::kPath1},
    {"owner",   SYS_fchmod,     Look::kFile},
#if defined(__x86_64__)
    {"open",    SYS_open,       Look::kPath0},
    {"stat",    SYS_stat,       Look::kPath0},
    {"access",  SYS_access,     Look::kPath0},
    {"mkdir",   SYS_mkdir,      Look::kPath0},
    {"rename",  SYS_rename,     Look::kPath0},
    {"unlink",  SYS_unlink,     Look::kPath0},
    {"owner",   SYS_chown,      Look::kPath0},
    {"owner",   SYS_chmod,      Look::kPath0},
#endif
};
// Excluded: the bench's files, and what the dynamic linker and the C library open.
constexpr const char* kSpared[] = {
    "/dev/__properties__", "/dev/log", "/dev/bench", "/data/property", "/lib", "/usr/lib",
    "/etc/ld.so", "/etc/localtime", "/usr/share/zoneinfo",
};
// clang-format on

FaultPlan plan;
FaultControl* control;
std::vector<NumberRow> rows;  // of the planned call

[[noreturn]] void die(const char* what) {
  perror(what);
  _exit(125);
}

// Without CAP_SYS_ADMIN a filter needs no_new_privs. That does not affect the daemon: no exec could
// add to its capabilities.
int install_filter() {
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) return -1;
  std::vector<struct sock_filter> code = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(struct seccomp_data, arch)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, kArchitecture, 1, 0),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(struct seccomp_data, nr)),
  };
  for (const NumberRow& row : rows) {
    code.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<uint32_t>(row.number), 0, 1));
    code.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_USER_NOTIF));
  }
  code.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
  struct sock_fprog program = {static_cast<unsigned short>(code.size()), code.data()};
  // A signal must not make the kernel report the same call twice.
  const unsigned flags = SECCOMP_FILTER_FLAG_NEW_LISTENER | SECCOMP_FILTER_FLAG_WAIT_KILLABLE_RECV;
  return static_cast<int>(syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, flags, &program));
}

// The target of a link in /proc/PID; "" if missing.
std::string link_of(pid_t pid, const std::string& name) {
  char target[4096];
  const std::string path = "/proc/" + std::to_string(pid) + "/" + name;
  const ssize_t size = readlink(path.c_str(), target, sizeof target);
  return std::string(target, size > 0 ? static_cast<size_t>(size) : 0);
}

std::string text_at(pid_t pid, uint64_t address) {
  char text[4096];
  struct iovec mine = {text, sizeof text};
  struct iovec theirs = {reinterpret_cast<void*>(address), sizeof text};
  ssize_t size = process_vm_readv(pid, &mine, 1, &theirs, 1, 0);
  if (size < 0) {  // near the end of a mapping
    mine.iov_len = theirs.iov_len = 4096 - address % 4096;
    size = process_vm_readv(pid, &mine, 1, &theirs, 1, 0);
  }
  return std::string(text, size > 0 ? strnlen(text, static_cast<size_t>(size)) : 0);
}

// An empty path is fstat() of a descriptor, used by the dynamic linker.
bool spared(const std::string& path) {
  return path.empty() ||
         std::any_of(std::begin(kSpared), std::end(kSpared), [&](const char* prefix) {
           return path.compare(0, strlen(prefix), prefix) == 0;
         });
}

bool is_meant(const struct seccomp_notif& asked) {
  const auto row = std::find_if(rows.begin(), rows.end(), [&](const NumberRow& candidate) {
    return candidate.number == asked.data.nr;
  });
  const auto pid = static_cast<pid_t>(asked.pid);
  const __u64* arguments = asked.data.args;
  if (row == rows.end() || link_of(pid, "exe") != kRealDaemon) return false;
  const bool thread = (arguments[0] & CLONE_THREAD) != 0;
  const std::string target =
      row->look >= Look::kFile
          ? link_of(pid, "fd/" + std::to_string(static_cast<int>(arguments[0])))
          : "";
  switch (row->look) {
    case Look::kProcess:
      return !thread;
    case Look::kThread:
      return thread;
    case Look::kPath0:
      return !spared(text_at(pid, arguments[0]));
    case Look::kPath1:
      return !spared(text_at(pid, arguments[1]));
    case Look::kFile:
      return target[0] == '/' && !spared(target);
    case Look::kSocket:
      return target.compare(0, 7, "socket:") == 0;
    default:
      return true;
  }
}

bool fails(const struct seccomp_notif& asked) {
  if (control->armed == 0 || !is_meant(asked)) return false;
  const int number = ++control->matched;
  const int beyond = number - plan.first;
  const bool now = plan.every == 0 ? beyond == 0 : beyond >= 0 && beyond % plan.every == 0;
  if (now) ++control->failed;
  return now;
}

// Answers until the last process under the filter has ended.
[[noreturn]] void supervise(int listener) {
  for (;;) {
    struct seccomp_notif asked = {};
    if (ioctl(listener, SECCOMP_IOCTL_NOTIF_RECV, &asked) != 0) {
      if (errno == EINTR || errno == ENOENT) continue;  // ENOENT: it was killed meanwhile
      _exit(0);
    }
    struct seccomp_notif_resp answer = {};
    answer.id = asked.id;
    if (fails(asked)) {
      answer.error = -plan.error;
    } else {
      answer.flags = SECCOMP_USER_NOTIF_FLAG_CONTINUE;
    }
    ioctl(listener, SECCOMP_IOCTL_NOTIF_SEND, &answer);  // fails if it was killed
  }
}

// In the supervisor, which is not under the filter. The listener's number comes over the socket,
// the descriptor is taken from the other process.
[[noreturn]] void become_supervisor(int socket, pid_t daemon) {
  prctl(PR_SET_NAME, "fault-injector");
  int number;
  if (recv(socket, &number, sizeof number, 0) != sizeof number) _exit(1);
  const int process = static_cast<int>(syscall(SYS_pidfd_open, daemon, 0));
  const int listener = static_cast<int>(syscall(SYS_pidfd_getfd, process, number, 0));
  close(process);
  if (listener < 0 || send(socket, "", 1, MSG_NOSIGNAL) != 1) _exit(1);
  // Close the control socket and other descriptors for the daemon.
  if (dup2(listener, 3) != 3) _exit(1);
  syscall(SYS_close_range, 4, ~0u, 0);
  supervise(3);
}

void start_supervisor(int socket) {
  const pid_t daemon = getpid();
  const pid_t pid = fork();
  if (pid < 0) die("fork");
  if (pid == 0) {
    // Double fork: the daemon ends all its children, so the supervisor must be init's.
    const pid_t supervisor = fork();
    if (supervisor == 0) become_supervisor(socket, daemon);
    _exit(supervisor < 0 ? 1 : 0);
  }
  int status;
  if (waitpid(pid, &status, 0) != pid || status != 0) die("supervisor");
}

void read_plan() {
  const char* text = getenv(kFaultVariable);
  if (text == nullptr || sscanf(text, "%15s %d %d %d %d", plan.call, &plan.error, &plan.first,
                                &plan.every, &plan.armed) != 5) {
    fprintf(stderr, "%s=CALL ERRNO FIRST EVERY ARMED\n", kFaultVariable);
    _exit(125);
  }
  std::copy_if(std::begin(kCalls), std::end(kCalls), std::back_inserter(rows),
               [](const NumberRow& row) { return strcmp(row.call, plan.call) == 0; });
}

// Created by the daemon's first process, reused after restarts.
void open_control() {
  const bool first = access(kFaultControl, F_OK) != 0;
  const Fd file(open(kFaultControl, O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  if (!file.ok() || ftruncate(file.get(), sizeof(FaultControl)) != 0) die(kFaultControl);
  void* memory =
      mmap(nullptr, sizeof(FaultControl), PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), 0);
  if (memory == MAP_FAILED) die("mmap");
  control = static_cast<FaultControl*>(memory);
  if (first) control->armed = plan.armed;
}

}  // namespace

int main() {
  read_plan();
  open_control();
  if (!rows.empty()) {  // "none": the reference run
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) die("socketpair");
    start_supervisor(ends[1]);
    close(ends[1]);
    const int listener = install_filter();
    char ready;
    if (listener < 0) die("seccomp");
    if (send(ends[0], &listener, sizeof listener, MSG_NOSIGNAL) != sizeof listener ||
        recv(ends[0], &ready, 1, 0) != 1)
      die("supervisor");
    close(listener);
    close(ends[0]);
  }
  char* argv[] = {const_cast<char*>("/system_ext/bin/harrowmossd"), nullptr};
  execv(kRealDaemon, argv);
  die(kRealDaemon);
}
