#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/wait.h>

#include "phone/adb/services.h"
#include "phone/util.h"
#include "phone/wait.h"

namespace {

constexpr const char* kShell = "/system/bin/sh";
constexpr size_t kBlock = 64 * 1024;

struct Command {
  pid_t pid = -1;
  bool terminal = false;
  // Our ends. With a terminal `in` and `out` are its master, and there is no `err`.
  Fd in, out, err;
};

[[noreturn]] void become_command(const AdbService& service) {
  if (!service.terminal_type.empty()) setenv("TERM", service.terminal_type.c_str(), 1);
  if (service.command.empty()) execl(kShell, "sh", nullptr);
  execl(kShell, "sh", "-c", service.command.c_str(), nullptr);
  _exit(127);
}

bool make_terminal(Command* command, std::string* name) {
  command->in.reset(open("/dev/ptmx", O_RDWR | O_NOCTTY | O_CLOEXEC));
  char text[64];
  if (!command->in.ok() || unlockpt(command->in.get()) != 0 ||
      ptsname_r(command->in.get(), text, sizeof text) != 0)
    return false;
  *name = text;
  command->out.reset(fcntl(command->in.get(), F_DUPFD_CLOEXEC, 0));
  return command->out.ok();
}

bool start(const AdbService& service, Command* command) {
  std::string terminal;
  int in[2] = {-1, -1}, out[2] = {-1, -1}, err[2] = {-1, -1};
  command->terminal = service.terminal;
  if (service.terminal) {
    if (!make_terminal(command, &terminal)) return false;
  } else {
    if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0)
      return false;
    command->in.reset(in[1]);
    command->out.reset(out[0]);
    command->err.reset(err[0]);
  }
  command->pid = fork();
  if (command->pid == 0) {
    setsid();
    if (service.terminal) {
      in[0] = out[1] = err[1] = open(terminal.c_str(), O_RDWR | O_CLOEXEC);
      ioctl(in[0], TIOCSCTTY, 0);
    }
    dup2(in[0], STDIN_FILENO);
    dup2(out[1], STDOUT_FILENO);
    dup2(err[1], STDERR_FILENO);
    become_command(service);
  }
  for (const int theirs : {in[0], out[1], err[1]}) Fd(theirs).reset();
  fcntl(command->in.get(), F_SETFL, O_WRONLY | O_NONBLOCK);
  return command->pid > 0;
}

// The input of a command. While some is unwritten, no more is read from the other side.
class Input {
 public:
  explicit Input(Command* command) : command_(command) {}

  bool waits() const { return !pending_.empty(); }
  // False when the stream is broken.
  bool add(std::string_view bytes) {
    reader_.add(bytes);
    while (const std::optional<Record> frame = reader_.next()) take(*frame);
    flush();
    return !reader_.broken();
  }
  void flush() {
    while (!pending_.empty()) {
      const ssize_t n = write(command_->in.get(), pending_.data(), pending_.size());
      if (n < 0 && errno == EAGAIN) return;
      if (n < 0) ended_ = true;  // it has closed its input
      pending_.erase(0, n < 0 ? pending_.size() : n);
    }
    if (ended_) command_->in.reset();
  }

 private:
  void take(const Record& frame) {
    switch (frame.header[0]) {
      case kStdin:
        pending_ += frame.payload;
        break;
      case kCloseStdin:
        if (command_->terminal) {
          pending_ += '\4';  // Ctrl-D
        } else {
          ended_ = true;
        }
        break;
      case kWindowSize: {
        struct winsize size = {};
        if (parse_window(frame.payload, &size.ws_row, &size.ws_col))
          ioctl(command_->in.get(), TIOCSWINSZ, &size);
        break;
      }
    }
  }

  Command* command_;
  RecordReader reader_{kFrameFormat};
  std::string pending_;
  bool ended_ = false;
};

// False when the other side is gone.
bool pass_output(Fd* from, ShellFrame id, int host) {
  char block[kBlock];
  const ssize_t n = read(from->get(), block, sizeof block);
  if (n > 0) return write_all(host, shell_frame(id, {block, static_cast<size_t>(n)}));
  if (n == 0 || errno != EINTR) from->reset();  // EIO: end of the terminal
  return true;
}

// Relays until the command has closed its outputs; false when the other side goes away first.
bool relay(int host, Command* command) {
  Input input(command);
  while (command->out.ok() || command->err.ok()) {
    enum { kHost, kIn, kOut, kErr, kCount };
    struct pollfd polled[kCount] = {{host, static_cast<short>(input.waits() ? 0 : POLLIN), 0},
                                    {input.waits() ? command->in.get() : -1, POLLOUT, 0},
                                    {command->out.get(), POLLIN, 0},
                                    {command->err.get(), POLLIN, 0}};
    if (poll(polled, kCount, -1) < 0) continue;
    if (polled[kIn].revents != 0) input.flush();
    if (polled[kOut].revents != 0 && !pass_output(&command->out, kStdout, host)) return false;
    if (polled[kErr].revents != 0 && !pass_output(&command->err, kStderr, host)) return false;
    if (polled[kHost].revents != 0) {
      char block[kBlock];
      const ssize_t n = read(host, block, sizeof block);
      if (n <= 0 || !input.add({block, static_cast<size_t>(n)})) return false;
    }
  }
  return true;
}

}  // namespace

void serve_shell(int host, const AdbService& service) {
  if (!service.frames) {
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; fd++) dup2(host, fd);
    setsid();
    become_command(service);
  }
  Command command;
  if (!start(service, &command)) {
    write_all(host, shell_frame(kStderr, errno_text("cannot start a shell") + "\n"));
    write_all(host, shell_frame(kExit, "\x7f"));
    _exit(1);
  }
  if (!relay(host, &command)) {
    signal_one(command.pid, SIGHUP);
    _exit(1);
  }
  int status = 0;
  waitpid(command.pid, &status, 0);
  const int code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  write_all(host, shell_frame(kExit, std::string(1, static_cast<char>(code))));
  _exit(0);
}
