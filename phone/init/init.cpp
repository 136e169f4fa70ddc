// The init of a bench phone: pid 1. Sets properties, runs the device's .rc file, the services and
// COMMAND, reaps, cuts the log buffers, and exits with COMMAND's status; the kernel then ends every
// other process in the phone.
#include <errno.h>
#include <fcntl.h>
#include <linux/close_range.h>
#include <net/if.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <iterator>
#include <memory>
#include <set>
#include <thread>

#include "phone/boot/root_layout.h"
#include "phone/init/default_properties.h"
#include "phone/init/init_log.h"
#include "phone/init/policy.h"
#include "phone/init/rc_commands.h"
#include "phone/init/rc_parser.h"
#include "phone/init/services.h"
#include "phone/input/supervisor.h"
#include "phone/logs/buffers.h"
#include "phone/logs/kmsg.h"
#include "phone/util.h"
#include "platform/linux/property_area.h"

namespace {

constexpr const char* kPropertiesLog = "/dev/bench/properties.log";
constexpr const char* kReadyFile = "/dev/bench/ready";
constexpr int kCutLogsEveryMs = 100;
constexpr int kCannotBoot = 125;

// The environment of every service on Android (init.environ.rc).
constexpr const char* kPathVariable =
    "PATH=/product/bin:/apex/com.android.runtime/bin:/apex/com.android.art/bin:/system_ext/bin:"
    "/system/bin:/system/xbin:/odm/bin:/vendor/bin:/vendor/xbin";
const char* const kAndroidEnvironment[] = {
    kPathVariable,
    "ANDROID_BOOTLOGO=1",
    "ANDROID_ROOT=/system",
    "ANDROID_ASSETS=/system/app",
    "ANDROID_DATA=/data",
    "ANDROID_STORAGE=/storage",
    "EXTERNAL_STORAGE=/sdcard",
    "DOWNLOAD_CACHE=/data/cache",
    "ASEC_MOUNTPOINT=/mnt/asec",
    "TMPDIR=/data/local",  // built into Android's shell
};

struct InitOptions {
  int control = -1;
  int adb = -1;          // a listening socket
  std::string adb_user;  // user of adb's commands
  bool services = true;
  bool terminal = false;
  bool input = false;
  std::vector<std::string> properties, environment, command;
  std::set<std::string> loose;
};

// Composed by the launcher, so not checked again.
InitOptions read_options(int argc, char** argv) {
  InitOptions options;
  for (int i = 1; i < argc; i++) {
    const std::string option = argv[i];
    if (option == "--") {
      options.command.assign(argv + i + 1, argv + argc);
      break;
    }
    if (option == "--no-services") options.services = false;
    if (option == "--terminal") options.terminal = true;
    if (option == "--input") options.input = true;
    if (i + 1 == argc) break;
    if (option == "--control-fd") options.control = atoi(argv[++i]);
    if (option == "--adb") {
      options.adb = atoi(argv[++i]);
      options.adb_user = argv[++i];
    }
    if (option == "--prop") options.properties.push_back(argv[++i]);
    if (option == "--loose") options.loose.insert(argv[++i]);
    if (option == "--env") options.environment.push_back(argv[++i]);
  }
  return options;
}

class Init {
 public:
  explicit Init(InitOptions options) : options_(std::move(options)) {}

  bool boot();
  [[noreturn]] void run();

 private:
  bool set_properties();
  void watch_properties();
  void open_fifos();
  void read_rc(const std::string& path);
  bool announce();
  void run_event(const std::string& event);
  void property_was_set(const std::string& key, const std::string& value);
  void read_property_changes();
  void reap();
  void set_environment();
  void start_adb();
  void start_command();
  [[noreturn]] void become_command();

  InitOptions options_;
  PropertyArea properties_;
  RcFile rc_;
  std::unique_ptr<Services> services_;
  std::vector<Fd> fifos_;
  Fd signals_, changes_, property_log_, terminal_master_;
  std::string terminal_name_, partial_change_;
  pid_t command_ = 0;
};

void bring_loopback_up() {
  Fd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  struct ifreq request = {};
  memcpy(request.ifr_name, "lo", sizeof "lo");
  request.ifr_flags = IFF_UP | IFF_RUNNING;
  if (ioctl(fd.get(), SIOCSIFFLAGS, &request) != 0) init_log(errno_text("cannot bring lo up"));
}

// ro.* can be set only once: no default for what --prop sets.
bool Init::set_properties() {
  const auto set = [this](const std::string& key, const std::string& value) {
    if (properties_.set(key.c_str(), value.c_str()) == 0) return true;
    init_complain("cannot set the property " + key);
    return false;
  };
  const auto given = [this](const std::string& key) {
    return std::any_of(
        options_.properties.begin(), options_.properties.end(),
        [&](const std::string& pair) { return pair.compare(0, key.size() + 1, key + "=") == 0; });
  };
  if (!properties_.create()) {
    init_complain(errno_text("cannot make the property area"));
    return false;
  }
  // Before any set: setting a persist.* property rewrites the saved ones.
  properties_.load_persistent();
  for (const DefaultProperty& property : kDefaultProperties) {
    char saved[92];
    if (given(property.key) || properties_.get(property.key, saved) > 0) continue;
    if (!set(property.key, property.value)) return false;
  }
  const bool loose = options_.loose.count("properties") == 1;
  const std::string contexts = read_file(std::string(kPolicyFolder) + "property_contexts");
  for (const DefaultProperty& property : kVendorProperties) {
    const bool readable = loose || has_property_row(contexts, property.key);
    if (readable && !given(property.key) && !set(property.key, property.value)) return false;
  }
  if (loose && !given("vold.mounted") && !set("vold.mounted", "1")) return false;
  for (const std::string& pair : options_.properties) {
    const size_t equals = pair.find('=');
    if (!set(pair.substr(0, equals), pair.substr(equals + 1))) return false;
  }
  return true;
}

// A thread that waits on the property area's futex. inotify on the log would need no thread, but
// closing an inotify descriptor takes the kernel up to 20 ms at the end of every phone.
void Init::watch_properties() {
  std::thread([this] {
    for (uint32_t seen = properties_.serial();;) {
      constexpr int kForGoodMs = 60000;
      seen = properties_.wait(seen, kForGoodMs);
      const uint64_t one = 1;
      (void)!write(changes_.get(), &one, sizeof one);
    }
  }).detach();
}

void Init::open_fifos() {
  for (const char* fifo : kFifos) fifos_.emplace_back(open(fifo, O_RDWR | O_NONBLOCK | O_CLOEXEC));
}

void Init::read_rc(const std::string& path) {
  RcFile file = parse_rc(read_file(path));
  for (const std::string& error : file.errors) init_complain(path + ": " + error);
  std::move(file.services.begin(), file.services.end(), std::back_inserter(rc_.services));
  std::move(file.actions.begin(), file.actions.end(), std::back_inserter(rc_.actions));
}

bool Init::boot() {
  if (options_.control >= 0) fcntl(options_.control, F_SETFD, FD_CLOEXEC);
  if (options_.adb >= 0) fcntl(options_.adb, F_SETFD, FD_CLOEXEC);
  if (options_.input && start_input_supervisor() < 0) {
    init_complain(errno_text("cannot supervise input devices"));
    return false;
  }
  sigset_t blocked;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGCHLD);
  sigprocmask(SIG_BLOCK, &blocked, nullptr);
  signals_.reset(signalfd(-1, &blocked, SFD_CLOEXEC | SFD_NONBLOCK));
  umask(0);
  if (!create_log_buffers()) {
    init_complain(errno_text("cannot make the log buffers"));
    return false;
  }
  std::thread(copy_kmsg).detach();
  if (!set_properties()) return false;
  property_log_.reset(open(kPropertiesLog, O_RDONLY | O_CLOEXEC));
  lseek(property_log_.get(), 0, SEEK_END);
  changes_.reset(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  watch_properties();
  open_fifos();
  bring_loopback_up();

  for (const char* path : {kBenchServicesRc, kPhoneRc}) read_rc(path);
  std::vector<std::string> environment(std::begin(kAndroidEnvironment),
                                       std::end(kAndroidEnvironment));
  environment.insert(environment.end(), options_.environment.begin(), options_.environment.end());
  services_ = std::make_unique<Services>(rc_.services, environment, &properties_,
                                         options_.loose.count("capabilities") == 0);
  return announce();
}

// Reports the boot to the launcher, passes it the terminal's master end, and waits until the
// launcher has opened what it needs of the phone.
bool Init::announce() {
  struct iovec iov = {const_cast<char*>("booted"), strlen("booted")};
  struct msghdr message = {};
  message.msg_iov = &iov;
  message.msg_iovlen = 1;
  alignas(struct cmsghdr) char space[CMSG_SPACE(sizeof(int))] = {};
  if (options_.terminal) {
    terminal_master_.reset(open("/dev/ptmx", O_RDWR | O_NOCTTY | O_CLOEXEC));
    char name[64];
    if (!terminal_master_.ok() || unlockpt(terminal_master_.get()) != 0 ||
        ptsname_r(terminal_master_.get(), name, sizeof name) != 0) {
      init_complain(errno_text("cannot make a terminal"));
      return false;
    }
    terminal_name_ = name;
    message.msg_control = space;
    message.msg_controllen = sizeof space;
    struct cmsghdr* header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof(int));
    const int fd = terminal_master_.get();
    memcpy(CMSG_DATA(header), &fd, sizeof fd);
  }
  const bool sent = sendmsg(options_.control, &message, MSG_NOSIGNAL) > 0;
  terminal_master_.reset();
  char go[2];
  return sent && recv(options_.control, go, sizeof go, 0) > 0;
}

void Init::run_event(const std::string& event) {
  for (const RcAction& action : rc_.actions) {
    if (action.event != event) continue;
    const bool met =
        std::all_of(action.properties.begin(), action.properties.end(), [&](const RcProperty& p) {
          char value[92];
          properties_.get(p.key.c_str(), value);
          return p.value == "*" ? value[0] != '\0' : p.value == value;
        });
    if (met) run_rc_commands(action.commands, services_.get(), &properties_);
  }
}

void Init::property_was_set(const std::string& key, const std::string& value) {
  // How Android starts and stops services from a shell.
  if (key == "ctl.start") services_->start(value);
  if (key == "ctl.stop") services_->stop(value);
  if (key == "ctl.restart") services_->restart(value);
  for (const RcAction& action : rc_.actions) {
    const auto get = [this](const std::string& other) {
      char current[92];
      properties_.get(other.c_str(), current);
      return std::string(current);
    };
    if (property_trigger_fires(action, key, value, get))
      run_rc_commands(action.commands, services_.get(), &properties_);
  }
}

// The log of sets serves as the queue of changes: it is complete and in order, also for two quick
// sets of one property.
void Init::read_property_changes() {
  char block[16384];
  uint64_t count;
  (void)!read(changes_.get(), &count, sizeof count);
  ssize_t n;
  while ((n = read(property_log_.get(), block, sizeof block)) > 0) partial_change_.append(block, n);
  size_t end;
  while ((end = partial_change_.find('\n')) != std::string::npos) {
    const std::string line = partial_change_.substr(0, end);
    partial_change_.erase(0, end + 1);
    const size_t blank = line.find(' ');
    const size_t equals = line.find('=');
    if (blank == std::string::npos || equals == std::string::npos || equals < blank) continue;
    property_was_set(line.substr(blank + 1, equals - blank - 1), line.substr(equals + 1));
  }
}

void Init::reap() {
  struct signalfd_siginfo info;
  while (read(signals_.get(), &info, sizeof info) > 0) {
  }
  int status;
  pid_t pid;
  while ((pid = waitpid(-1, &status, WNOHANG)) > 0) {
    if (pid == command_) {
      const int code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
      init_log("command ended with " + std::to_string(code));
      _exit(code);
    }
    services_->exited(pid, status);
  }
}

// The environment, signal mask and umask of COMMAND and adb's shells.
void Init::set_environment() {
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  umask(022);
  const char* terminal_type = getenv("TERM");
  const std::string type = terminal_type != nullptr ? terminal_type : "dumb";
  clearenv();
  std::vector<std::string> environment(std::begin(kAndroidEnvironment),
                                       std::end(kAndroidEnvironment));
  environment[0] += ":/data/local/tmp";
  for (const char* pair : {"HOME=/", "USER=root", "LOGNAME=root", "SHELL=/bin/sh"})
    environment.push_back(pair);
  environment.push_back("TERM=" + type);
  environment.insert(environment.end(), options_.environment.begin(), options_.environment.end());
  for (const std::string& pair : environment) {
    const size_t equals = pair.find('=');
    setenv(pair.substr(0, equals).c_str(), pair.substr(equals + 1).c_str(), 1);
  }
}

// A separate process: a connection that hangs must not block init.
void Init::start_adb() {
  if (options_.adb < 0) return;
  const pid_t pid = fork();
  if (pid == 0) {
    set_environment();
    dup2(Fd(open("/dev/null", O_RDWR | O_CLOEXEC)).get(), STDIN_FILENO);
    fcntl(options_.adb, F_SETFD, 0);
    execl(kPhoneAdbd, "adbd", std::to_string(options_.adb).c_str(), options_.adb_user.c_str(),
          nullptr);
    _exit(127);
  }
  if (pid < 0) init_complain(errno_text("cannot start adbd"));
  close(options_.adb);
}

void Init::become_command() {
  set_environment();
  if (!terminal_name_.empty()) {
    setsid();
    const int slave = open(terminal_name_.c_str(), O_RDWR | O_CLOEXEC);
    ioctl(slave, TIOCSCTTY, 0);
    const bool with_stderr = isatty(STDERR_FILENO);
    for (int fd = 0; fd <= (with_stderr ? 2 : 1); fd++) dup2(slave, fd);
  }
  std::vector<char*> argv;
  for (const std::string& word : options_.command) argv.push_back(const_cast<char*>(word.c_str()));
  argv.push_back(nullptr);
  execvp(argv[0], argv.data());
  const int code = errno == ENOENT ? 127 : 126;
  init_complain(errno_text(options_.command[0]));
  _exit(code);
}

void Init::start_command() {
  write_file(kReadyFile, "", 0644);
  command_ = fork();
  if (command_ == 0) become_command();
  if (command_ < 0) {
    init_complain(errno_text("cannot start the command"));
    _exit(kCannotBoot);
  }
  init_log("command " + std::to_string(command_));
}

void Init::run() {
  start_adb();
  for (const char* event : {"early-init", "init", "late-init", "post-fs", "post-fs-data", "boot"})
    run_event(event);
  // Sets made during boot are no events; a trigger that is true by now runs once, as on a phone.
  for (const RcAction& action : rc_.actions) {
    if (!action.event.empty() || action.properties.empty()) continue;
    char value[92];
    properties_.get(action.properties[0].key.c_str(), value);
    if (value[0] != '\0') property_was_set(action.properties[0].key, value);
  }
  if (options_.services) {
    for (const char* klass : {"core", "main", "late_start", "default"})
      services_->start_class(klass);
  }
  while (true) {
    services_->tick();
    if (command_ == 0 && services_->all_listen()) start_command();
    struct pollfd polled[] = {{signals_.get(), POLLIN, 0}, {changes_.get(), POLLIN, 0}};
    const int next = services_->next_tick_ms();
    poll(polled, 2, next < 0 ? kCutLogsEveryMs : std::min(next, kCutLogsEveryMs));
    if (polled[0].revents != 0) reap();
    read_property_changes();
    cut_log_buffers();
  }
}

}  // namespace

int main(int argc, char** argv) {
  InitOptions options = read_options(argc, argv);
  // Close descriptors inherited from the launcher's caller.
  unsigned first = STDERR_FILENO + 1;
  for (const int kept : std::set<int>{options.control, options.adb}) {
    if (kept < static_cast<int>(first)) continue;
    if (kept > static_cast<int>(first)) close_range(first, kept - 1, 0);
    first = kept + 1;
  }
  close_range(first, ~0u, 0);
  Init init(std::move(options));
  if (!init.boot()) _exit(kCannotBoot);
  init.run();
}
