#include "phone/input/supervisor.h"

#include <fcntl.h>
#include <linux/close_range.h>
#include <linux/filter.h>
#include <linux/input.h>
#include <linux/seccomp.h>
#include <signal.h>
#include <stddef.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>

#include "phone/input/devices.h"
#include "phone/seccomp_architecture.h"
#include "phone/util.h"

namespace {

// An ioctl request without the buffer size in its number.
constexpr uint32_t without_size(uint32_t request) {
  return request & ~static_cast<uint32_t>(IOCSIZE_MASK);
}

constexpr uint32_t low_word(int argument) {
  return offsetof(struct seccomp_data, args) +
         static_cast<uint32_t>(argument) * 8;  // little-endian
}

// Returns the listener of the new filter, -1 with errno.
int install_filter() {
  constexpr int kIoctl = 8, kAllow = 14, kNotify = 15;  // indices; a jump counts from the next one
  struct sock_filter code[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(struct seccomp_data, arch)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, kArchitecture, 0, kAllow - 2),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(struct seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_ioctl, kIoctl - 4, 0),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_openat, 0, kAllow - 5),
      // openat: for reading and writing, nothing is created
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, low_word(2)),
      BPF_STMT(BPF_ALU | BPF_AND | BPF_K, O_ACCMODE | O_CREAT),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, O_RDWR, kNotify - 8, kAllow - 8),
      // ioctl: one of four requests
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, low_word(1)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, EVIOCSCLOCKID, kNotify - 10, 0),
      BPF_STMT(BPF_ALU | BPF_AND | BPF_K, without_size(~0u)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, without_size(EVIOCGNAME(0)), kNotify - 12, 0),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, without_size(EVIOCGPHYS(0)), kNotify - 13, 0),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, without_size(EVIOCGUNIQ(0)), kNotify - 14, 0),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_USER_NOTIF),
  };
  struct sock_fprog program = {sizeof code / sizeof code[0], code};
  return static_cast<int>(
      syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_NEW_LISTENER, &program));
}

bool send_fd(int socket, int fd) {
  char byte = 0;
  struct iovec iov = {&byte, 1};
  alignas(struct cmsghdr) char space[CMSG_SPACE(sizeof(int))] = {};
  struct msghdr message = {};
  message.msg_iov = &iov;
  message.msg_iovlen = 1;
  message.msg_control = space;
  message.msg_controllen = sizeof space;
  struct cmsghdr* header = CMSG_FIRSTHDR(&message);
  header->cmsg_level = SOL_SOCKET;
  header->cmsg_type = SCM_RIGHTS;
  header->cmsg_len = CMSG_LEN(sizeof(int));
  memcpy(CMSG_DATA(header), &fd, sizeof fd);
  return sendmsg(socket, &message, MSG_NOSIGNAL) == 1;
}

int receive_fd(int socket) {
  char byte;
  struct iovec iov = {&byte, 1};
  alignas(struct cmsghdr) char space[CMSG_SPACE(sizeof(int))];
  struct msghdr message = {};
  message.msg_iov = &iov;
  message.msg_iovlen = 1;
  message.msg_control = space;
  message.msg_controllen = sizeof space;
  if (recvmsg(socket, &message, MSG_CMSG_CLOEXEC) != 1) return -1;
  const struct cmsghdr* header = CMSG_FIRSTHDR(&message);
  if (header == nullptr || header->cmsg_type != SCM_RIGHTS) return -1;
  int fd;
  memcpy(&fd, CMSG_DATA(header), sizeof fd);
  return fd;
}

// The child's body. It is not under the filter: its own open() would wait for itself.
[[noreturn]] void supervise(int parent) {
  prctl(PR_SET_NAME, "input-devices");
  signal(SIGPIPE, SIG_IGN);  // a reader that ended
  dup2(parent, 3);           // descriptors inherited from init are closed
  close_range(4, ~0u, 0);
  Fd control(listen_for_input_requests());
  Fd listener(control.ok() ? receive_fd(3) : -1);
  if (!listener.ok() || write(3, "", 1) != 1) _exit(1);
  close(3);
  InputDevices devices(std::move(listener), std::move(control));
  devices.run();
  _exit(0);
}

}  // namespace

pid_t start_input_supervisor() {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) return -1;
  Fd mine(ends[0]), theirs(ends[1]);
  const pid_t child = fork();
  if (child == 0) supervise(theirs.get());
  theirs.reset();
  if (child < 0) return -1;
  Fd listener(install_filter());
  char ready;
  if (listener.ok() && send_fd(mine.get(), listener.get()) && read(mine.get(), &ready, 1) == 1)
    return child;
  const int saved_errno = errno;
  kill(child, SIGKILL);
  errno = saved_errno;
  return -1;
}
