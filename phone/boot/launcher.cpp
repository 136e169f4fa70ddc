// phone: boots a bench phone, runs a command in it, and ends with the command's exit status.
#include <arpa/inet.h>
#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <chrono>
#include <filesystem>

#include "phone/boot/keep_logs.h"
#include "phone/boot/options.h"
#include "phone/boot/root.h"
#include "phone/boot/root_layout.h"
#include "phone/boot/terminal.h"
#include "phone/util.h"

namespace {

constexpr int kCannotBoot = 125;  // as env(1) and timeout(1) use these
constexpr int kTimedOut = 124;
constexpr int kUsageError = 2;
constexpr int kNamespaces = CLONE_NEWNS | CLONE_NEWPID | CLONE_NEWIPC | CLONE_NEWUTS | CLONE_NEWNET;

void complain(const std::string& what) {
  fprintf(stderr, "phone: %s\n", what.c_str());
}

// The arguments for init: the options that it handles itself.
std::vector<std::string> init_arguments(const PhoneOptions& options, int control, int adb,
                                        bool terminal) {
  std::vector<std::string> arguments = {"init", "--control-fd", std::to_string(control)};
  if (!options.services) arguments.push_back("--no-services");
  if (options.input) arguments.push_back("--input");
  if (terminal) arguments.push_back("--terminal");
  if (adb >= 0) {
    for (const std::string& word : {std::string("--adb"), std::to_string(adb), options.adb_user})
      arguments.push_back(word);
  }
  for (const std::string& word : options.loose) {
    arguments.push_back("--loose");
    arguments.push_back(word);
  }
  for (const std::string& pair : options.properties) {
    arguments.push_back("--prop");
    arguments.push_back(pair);
  }
  for (const std::string& pair : options.environment) {
    arguments.push_back("--env");
    arguments.push_back(pair);
  }
  arguments.push_back("--");
  if (options.command.empty()) {
    arguments.push_back("/system/bin/sh");
    if (terminal) arguments.push_back("-i");
  }
  arguments.insert(arguments.end(), options.command.begin(), options.command.end());
  return arguments;
}

// The first process of the new namespaces; becomes the phone's init.
[[noreturn]] void become_init(const PhoneParts& parts, const PhoneOptions& options, Fd control,
                              const Fd& adb, bool terminal) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  setsid();  // no group signal sent in the phone reaches the launcher
  // The launcher may have ended before prctl(): its end of the control socket is closed then.
  struct pollfd launcher = {control.get(), POLLIN, 0};
  if (poll(&launcher, 1, 0) != 0) _exit(kCannotBoot);
  std::string error;
  if (!enter_phone_root(parts, options, &error)) {
    complain("cannot make the phone: " + error);
    _exit(kCannotBoot);
  }
  (void)!sethostname("localhost", strlen("localhost"));  // cosmetic
  fcntl(control.get(), F_SETFD, 0);                      // inherited by init
  if (adb.ok()) fcntl(adb.get(), F_SETFD, 0);
  const std::vector<std::string> arguments =
      init_arguments(options, control.get(), adb.get(), terminal);
  std::vector<char*> argv;
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  execv(kPhoneInit, argv.data());
  complain(errno_text(std::string("cannot start ") + kPhoneInit));
  _exit(kCannotBoot);
}

// Waits for init's only message, "booted"; it carries the phone's terminal if there is one.
bool wait_for_boot(int control, int timeout_ms, Fd* terminal) {
  struct pollfd polled = {control, POLLIN, 0};
  int ready;
  while ((ready = poll(&polled, 1, timeout_ms)) < 0 && errno == EINTR) {
  }
  if (ready <= 0) return false;
  char word[16];
  struct iovec iov = {word, sizeof word};
  alignas(struct cmsghdr) char space[CMSG_SPACE(sizeof(int))];
  struct msghdr message = {};
  message.msg_iov = &iov;
  message.msg_iovlen = 1;
  message.msg_control = space;
  message.msg_controllen = sizeof space;
  if (recvmsg(control, &message, MSG_CMSG_CLOEXEC) <= 0) return false;
  const struct cmsghdr* header = CMSG_FIRSTHDR(&message);
  if (header != nullptr && header->cmsg_type == SCM_RIGHTS) {
    int fd;
    memcpy(&fd, CMSG_DATA(header), sizeof fd);
    terminal->reset(fd);
  }
  return true;
}

// Renamed into place: a reader must not see a partial number.
bool write_pid_file(const std::string& path, pid_t pid) {
  const std::string temporary = path + ".new";
  return write_file(temporary, std::to_string(pid) + "\n", 0644) &&
         rename(temporary.c_str(), path.c_str()) == 0;
}

// Listens on the machine's loopback: a socket stays in the network namespace that created it.
Fd listen_for_adb(int port) {
  Fd fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  struct sockaddr_in address = {};
  socklen_t length = sizeof address;
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const int on = 1;
  setsockopt(fd.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  auto* name = reinterpret_cast<struct sockaddr*>(&address);
  if (bind(fd.get(), name, length) != 0 || listen(fd.get(), SOMAXCONN) != 0 ||
      getsockname(fd.get(), name, &length) != 0) {
    complain(errno_text("cannot listen on 127.0.0.1:" + std::to_string(port)));
    return Fd();
  }
  complain("adb connect 127.0.0.1:" + std::to_string(ntohs(address.sin_port)));
  return fd;
}

pid_t clone_phone() {
  return static_cast<pid_t>(syscall(SYS_clone, kNamespaces | SIGCHLD, 0, 0, 0, 0));
}

int exit_status_of(pid_t pid) {
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// Descriptors that keep the phone's file systems readable after it has ended.
struct LogDirectories {
  Fd dev, data;
  explicit LogDirectories(pid_t init)
      : dev(open_inside(init, "/dev")), data(open_inside(init, "/data")) {}
  static int open_inside(pid_t init, const char* path) {
    const std::string inside = "/proc/" + std::to_string(init) + "/root" + path;
    return open(inside.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
  }
  static std::string path(const Fd& fd) { return "/proc/self/fd/" + std::to_string(fd.get()); }
};

// COMMAND writes the name for its logs into kPhoneNameFile.
void keep_or_drop(const LogDirectories& logs, const std::string& parent, bool failed) {
  std::string name = read_file(LogDirectories::path(logs.dev) + (kPhoneNameFile + strlen("/dev")));
  if (name.empty() || name.find('/') != std::string::npos) name = "phone";
  const std::string directory = parent + "/" + name;
  std::error_code error;
  if (!failed) {
    std::filesystem::remove_all(directory, error);
  } else if (keep_logs(LogDirectories::path(logs.dev), LogDirectories::path(logs.data),
                       directory)) {
    complain("its logs are in " + directory);
  }
}

int run_phone(const PhoneOptions& options, PhoneParts* parts) {
  const auto start = std::chrono::steady_clock::now();
  const auto left_ms = [&]() -> int {
    if (options.timeout_s == 0) return -1;
    const auto gone = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::steady_clock::now() - start);
    return std::max<int>(0, options.timeout_s * 1000 - static_cast<int>(gone.count()));
  };
  const bool terminal = on_terminal();
  Fd adb;
  if (options.adb_port >= 0) {
    adb = listen_for_adb(options.adb_port);
    if (!adb.ok()) {
      rmdir(parts->mount_point.c_str());
      return kCannotBoot;
    }
  }
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) return kCannotBoot;
  Fd mine(ends[0]), theirs(ends[1]);
  const pid_t pid = clone_phone();
  if (pid < 0) {
    complain(errno_text("cannot make namespaces"));
    if (errno == EPERM)
      complain("root is needed; or run: unshare --user --map-root-user --map-auto phone ...");
    rmdir(parts->mount_point.c_str());
    return kCannotBoot;
  }
  if (pid == 0) {
    mine.reset();
    become_init(*parts, options, std::move(theirs), adb, terminal);
  }
  theirs.reset();
  adb.reset();
  Fd pidfd(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
  Fd master;
  const bool booted = wait_for_boot(mine.get(), left_ms(), &master);
  rmdir(parts->mount_point.c_str());  // left over only when boot failed
  if (booted && !options.pid_file.empty() && !write_pid_file(options.pid_file, pid))
    complain(errno_text("cannot write " + options.pid_file));
  const bool wanted = !options.failed_logs.empty() || !options.taken.empty();
  const LogDirectories logs(wanted ? pid : 0);
  // init waits for this: a short COMMAND could end before its /dev is open here.
  (void)!send(mine.get(), "go", 2, MSG_NOSIGNAL);
  bool in_time = true;
  if (master.ok()) {
    in_time = relay_terminal(master.get(), pidfd.get(), left_ms());
  } else {
    struct pollfd polled = {pidfd.get(), POLLIN, 0};
    int ready;
    while ((ready = poll(&polled, 1, left_ms())) < 0 && errno == EINTR) {
    }
    in_time = ready != 0;
  }
  if (!in_time) {
    kill(pid, SIGKILL);
    complain("ended after " + std::to_string(options.timeout_s) + " s");
  }
  const int ended = exit_status_of(pid), status = in_time ? ended : kTimedOut;
  if (!logs.dev.ok()) return status;
  if (!options.failed_logs.empty()) keep_or_drop(logs, options.failed_logs, status != 0);
  if (!options.taken.empty())
    copy_files(LogDirectories::path(logs.data) + kTakenDir, options.taken);
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  PhoneOptions options;
  PhoneParts parts;
  std::string error;
  if (!parse_phone_options({argv + 1, argv + argc}, &options, &error)) {
    complain(error);
    fputs(kPhoneUsage, stderr);
    return kUsageError;
  }
  if (options.help) {
    fputs(kPhoneUsage, stdout);
    return 0;
  }
  if (!find_phone_parts(options, &parts, &error)) {
    complain(error);
    return kCannotBoot;
  }
  char mount_point[] = "/tmp/bench-phone.XXXXXX";
  if (mkdtemp(mount_point) == nullptr) {
    complain(errno_text("cannot make a directory in /tmp"));
    return kCannotBoot;
  }
  parts.mount_point = mount_point;
  return run_phone(options, &parts);
}
