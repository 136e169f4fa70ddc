#include "phone/host/phone.h"

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <set>

#include "phone/boot/keep_logs.h"
#include "phone/boot/root_layout.h"
#include "phone/host/failure.h"
#include "phone/init/init_log.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* kShellPath =
    "/product/bin:/apex/com.android.runtime/bin:/apex/com.android.art/bin:/system_ext/bin:"
    "/system/bin:/system/xbin:/odm/bin:/vendor/bin:/vendor/xbin:/data/local/tmp";

std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> lines;
  for (size_t at = 0, end; (end = text.find('\n', at)) != std::string::npos; at = end + 1)
    lines.push_back(text.substr(at, end - at));
  return lines;
}

int exit_code(int status) {
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

[[noreturn]] void exec_argv(const std::vector<std::string>& argv) {
  std::vector<char*> pointers;
  for (const std::string& word : argv) pointers.push_back(const_cast<char*>(word.c_str()));
  pointers.push_back(nullptr);
  execvp(pointers[0], pointers.data());
  perror(pointers[0]);
  _exit(127);
}

struct Pipe {
  Fd read_end, write_end;
  Pipe() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) abort();
    read_end.reset(ends[0]);
    write_end.reset(ends[1]);
  }
};

// The fields of /proc/PID/stat up to the session, and the command line.
bool read_process(const std::string& proc, const std::string& name, PhoneProcess* process) {
  const std::string stat = read_file(proc + "/" + name + "/stat");
  const size_t begin = stat.find('('), end = stat.rfind(')');
  if (begin == std::string::npos || end == std::string::npos) return false;
  process->pid = atoi(name.c_str());
  process->comm = stat.substr(begin + 1, end - begin - 1);
  if (sscanf(stat.c_str() + end, ") %c %d %d %d", &process->state, &process->ppid, &process->pgrp,
             &process->session) != 4)
    return false;
  const std::string cmdline = read_file(proc + "/" + name + "/cmdline");
  for (size_t at = 0, zero; (zero = cmdline.find('\0', at)) != std::string::npos; at = zero + 1)
    process->cmdline.push_back(cmdline.substr(at, zero - at));
  return true;
}

// A line for each process that has a command's output open, with the kernel function in which it
// waits.
std::string open_in(const std::set<std::string>& pipes) {
  std::string lines;
  std::error_code error;
  for (const auto& entry : fs::directory_iterator("/proc", error)) {
    const std::string number = entry.path().filename();
    PhoneProcess process;
    if (!isdigit(number[0]) || !read_process("/proc", number, &process)) continue;
    std::string descriptors;
    for (const auto& fd : fs::directory_iterator(entry.path() / "fd", error)) {
      if (pipes.count(fs::read_symlink(fd.path(), error)) > 0)
        descriptors += " " + fd.path().filename().string();
    }
    if (descriptors.empty() || process.pid == getpid()) continue;
    lines += "\n  " + number + " (child of " + std::to_string(process.ppid) + ") " + process.state +
             " " + read_file(entry.path() / "wchan") + ", descriptors" + descriptors + ":";
    for (const std::string& word : process.cmdline) lines += " " + word;
  }
  return lines;
}

// Forks `child` with pipes as its three standard streams and reads until both outputs are closed.
RunResult capture(const std::vector<std::string>& argv, const std::string& input,
                  const std::function<void()>& child) {
  Pipe in, out, err;
  RunResult result;
  const pid_t pid = fork();
  if (pid < 0) return result;
  if (pid == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    dup2(in.read_end.get(), 0);
    dup2(out.write_end.get(), 1);
    dup2(err.write_end.get(), 2);
    in.write_end.reset();  // otherwise a command that reads to the end never gets EOF
    child();
    _exit(127);
  }
  in.read_end.reset();
  out.write_end.reset();
  err.write_end.reset();
  const ssize_t written = ::write(in.write_end.get(), input.data(), input.size());
  expect_of_phone(written == static_cast<ssize_t>(input.size()),  // fits into the pipe
                  errno_text("a command's input"));
  in.write_end.reset();
  struct pollfd polled[] = {{out.read_end.get(), POLLIN, 0}, {err.read_end.get(), POLLIN, 0}};
  std::string* texts[] = {&result.out, &result.err};
  while (polled[0].fd >= 0 || polled[1].fd >= 0) {
    const int ready = poll(polled, 2, kSwitchMs);
    if (ready == 0) {
      std::string failure = "did not end within " + std::to_string(kSwitchMs) + " ms:";
      for (const std::string& word : argv) failure += " " + word;
      std::error_code error;
      std::set<std::string> pipes;
      for (const Pipe* each : {&out, &err})
        pipes.insert(
            fs::read_symlink("/proc/self/fd/" + std::to_string(each->read_end.get()), error));
      failure += open_in(pipes);
      signal_one(pid, SIGKILL);
      on_phone_failure(failure);
      break;
    }
    for (int i = 0; i < 2; i++) {
      if (polled[i].revents == 0) continue;
      char block[8192];
      const ssize_t n = ::read(polled[i].fd, block, sizeof block);
      if (n > 0) texts[i]->append(block, n);
      if (n == 0) polled[i].fd = -1;
    }
  }
  int status = 0;
  waitpid(pid, &status, 0);
  result.status = exit_code(status);
  return result;
}

// In a forked child: enters the phone's namespaces and runs `argv`.
[[noreturn]] void run_inside(pid_t init, const std::vector<std::string>& argv) {
  const Fd phone(static_cast<int>(syscall(SYS_pidfd_open, init, 0)));
  constexpr int kNamespaces =
      CLONE_NEWNS | CLONE_NEWPID | CLONE_NEWIPC | CLONE_NEWUTS | CLONE_NEWNET;
  if (setns(phone.get(), kNamespaces) != 0 || chdir("/") != 0) {
    perror("setns");
    _exit(126);
  }
  const pid_t pid = fork();  // only a child enters the new pid namespace
  if (pid == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    clearenv();
    setenv("PATH", kShellPath, 1);
    setenv("HOME", "/", 1);
    setenv("TMPDIR", "/data/local", 1);  // built into Android's shell
    umask(022);
    exec_argv(argv);
  }
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  _exit(pid < 0 ? 126 : exit_code(status));
}

}  // namespace

void (*before_phone_ends)(const Phone& phone) = nullptr;

RunResult run_on_host(const std::vector<std::string>& argv, const std::string& input) {
  return capture(argv, input, [&] { exec_argv(argv); });
}

RunResult run_phone(const std::vector<std::string>& arguments, const std::string& input) {
  std::vector<std::string> argv = {PHONE_LAUNCHER};
  argv.insert(argv.end(), arguments.begin(), arguments.end());
  return run_on_host(argv, input);
}

Phone::Phone(const std::vector<std::string>& options, Until until) {
  char directory[] = "/tmp/phone-test.XXXXXX";
  if (mkdtemp(directory) == nullptr) {
    on_phone_failure(errno_text("mkdtemp"));
    return;
  }
  directory_ = directory;
  Pipe input;
  std::vector<std::string> argv = {PHONE_LAUNCHER, "--pid-file", directory_ + "/pid"};
  argv.insert(argv.end(), options.begin(), options.end());
  argv.insert(argv.end(), {"--", "/system/bin/cat"});
  launcher_ = fork();
  if (launcher_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    setsid();
    const int messages =
        open((directory_ + "/messages").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(input.read_end.get(), 0);
    dup2(null, 1);
    dup2(messages, 2);
    exec_argv(argv);
  }
  input_ = std::move(input.write_end);
  launcher_pidfd_.reset(static_cast<int>(syscall(SYS_pidfd_open, launcher_, 0)));
  const std::string pid_file = directory_ + "/pid";
  const bool booted = eventually([&] {
    struct pollfd ended = {launcher_pidfd_.get(), POLLIN, 0};
    return access(pid_file.c_str(), F_OK) == 0 || poll(&ended, 1, 0) != 0;
  });
  const int pid = atoi(read_file(pid_file).c_str());
  if (!booted || pid <= 0) {
    on_phone_failure("no phone: " + messages());
    return;
  }
  init_pidfd_.reset(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
  init_ = pid;
  properties_ = std::make_unique<PropertyArea>("/proc/" + std::to_string(pid) + "/root");
  expect_of_phone(properties_->open(), errno_text("the phone's properties"));
  if (until == Until::kReady && !wait_until_ready())
    on_phone_failure("the daemon does not listen: " + messages() + read(kInitLog));
}

Phone::~Phone() {
  end();
  if (!directory_.empty()) fs::remove_all(directory_);
}

bool Phone::wait_until_ready(int limit_ms) const {
  return eventually([this] { return exists("/dev/bench/ready"); }, limit_ms);
}

void Phone::end() {
  if (launcher_ <= 0) return;
  if (ok() && before_phone_ends != nullptr) before_phone_ends(*this);
  signal_one(launcher_, SIGKILL);  // every process of the phone ends with it
  while (waitpid(launcher_, nullptr, 0) < 0 && errno == EINTR) {
  }
  launcher_ = -1;
  if (init_pidfd_.ok()) {
    struct pollfd gone = {init_pidfd_.get(), POLLIN, 0};
    expect_of_phone(poll(&gone, 1, kOwedMs) == 1, "the phone did not end with its launcher");
  }
}

std::string Phone::messages() const {
  return read_file(directory_ + "/messages");
}

std::string Phone::inside(const std::string& path) const {
  return "/proc/" + std::to_string(init_) + "/root" + path;
}

std::string Phone::read(const std::string& path) const {
  return read_file(inside(path));
}

void Phone::write(const std::string& path, const std::string& text) const {
  const bool trace = path.rfind("/data/anr/", 0) == 0;
  const bool written = write_file(inside(path), text, trace ? 0600 : 0644) &&
                       (!trace || chown(inside(path).c_str(), kAidSystem, kAidSystem) == 0);
  expect_of_phone(written, errno_text(path));
}

void Phone::append(const std::string& path, const std::string& text) const {
  expect_of_phone(append_file(inside(path), text), errno_text(path));
}

bool Phone::exists(const std::string& path) const {
  struct stat st;
  return lstat(inside(path).c_str(), &st) == 0;
}

std::vector<std::string> Phone::list(const std::string& directory) const {
  std::vector<std::string> names;
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(inside(directory), error))
    names.push_back(entry.path().filename());
  std::sort(names.begin(), names.end());
  return names;
}

void Phone::setprop(const std::string& key, const std::string& value) {
  if (!ok()) return;
  expect_of_phone(properties_->set(key.c_str(), value.c_str()) == 0, key + "=" + value);
}

std::string Phone::getprop(const std::string& key) const {
  char value[92] = "";
  if (ok()) properties_->get(key.c_str(), value);
  return value;
}

std::vector<BenchCall> Phone::calls() const {
  std::vector<BenchCall> calls = calls_in(read(kCallsLog));
  for (const BenchCall& call : calls) expect_of_phone(!call.program.empty(), "broken journal line");
  return calls;
}

std::vector<BenchCall> Phone::calls_of(const std::string& program) const {
  return calls_in(read(kCallsLog), program);
}

std::vector<std::string> Phone::shell_commands() const {
  return shell_commands_in(read(kCallsLog));
}

void Phone::clear_calls() const {
  expect_of_phone(truncate(inside(kCallsLog).c_str(), 0) == 0, errno_text(kCallsLog));
}

std::vector<PropertySet> Phone::properties_log() const {
  std::vector<PropertySet> sets;
  for (const std::string& line : lines_of(read("/dev/bench/properties.log"))) {
    const size_t blank = line.find(' '), equals = line.find('=');
    if (blank == std::string::npos || equals == std::string::npos) continue;
    sets.push_back(
        {atoi(line.c_str()), line.substr(blank + 1, equals - blank - 1), line.substr(equals + 1)});
  }
  return sets;
}

std::vector<std::string> Phone::values_of(const std::string& key) const {
  std::vector<std::string> values;
  for (const PropertySet& set : properties_log()) {
    if (set.key == key) values.push_back(set.value);
  }
  return values;
}

RunResult Phone::run(const std::vector<std::string>& argv, const std::string& input) const {
  return capture(argv, input, [&] { run_inside(init_, argv); });
}

BackgroundCommand Phone::spawn(const std::vector<std::string>& argv) const {
  Pipe input;
  const Fd null(open("/dev/null", O_WRONLY | O_CLOEXEC));
  const pid_t pid = fork();
  if (pid == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    dup2(input.read_end.get(), 0);
    dup2(null.get(), 1);
    dup2(null.get(), 2);
    input.write_end.reset();
    run_inside(init_, argv);
  }
  expect_of_phone(pid > 0, errno_text(argv[0]));
  return BackgroundCommand(pid, std::move(input.write_end));
}

BackgroundCommand::~BackgroundCommand() {
  if (pid_ <= 0) return;
  signal_one(pid_, SIGKILL);  // PDEATHSIG ends the command
  waitpid(pid_, nullptr, 0);
}

std::vector<PhoneProcess> Phone::processes() const {
  std::vector<PhoneProcess> all;
  for (const std::string& name : list("/proc")) {
    PhoneProcess process;
    if (isdigit(name[0]) && read_process(inside("/proc"), name, &process))
      all.push_back(std::move(process));
  }
  return all;
}

std::vector<PhoneProcess> Phone::named(const std::string& comm) const {
  std::vector<PhoneProcess> found;
  for (PhoneProcess& process : processes()) {
    if (process.comm == comm) found.push_back(std::move(process));
  }
  return found;
}

pid_t Phone::daemon_pid() const {
  return atoi(getprop("init.svc_debug_pid.harrowmossd").c_str());
}

pid_t Phone::outer_pid(pid_t pid) const {
  std::error_code error;
  const std::string phone_namespace =
      fs::read_symlink("/proc/" + std::to_string(init_) + "/ns/pid", error);
  for (const auto& entry : fs::directory_iterator("/proc", error)) {
    const std::string name = entry.path().filename();
    if (!isdigit(name[0])) continue;
    std::error_code gone;
    if (fs::read_symlink(entry.path() / "ns/pid", gone) != phone_namespace) continue;
    for (const std::string& line : lines_of(read_file(entry.path() / "status"))) {
      if (line.compare(0, 6, "NSpid:") != 0) continue;
      if (atoi(split(line, "\t").back().c_str()) == pid) return atoi(name.c_str());
    }
  }
  return 0;
}

bool Phone::signal(pid_t pid, int sig) const {
  return pid > 1 && signal_one(outer_pid(pid), sig);
}

bool Phone::keep_logs(const std::string& directory) const {
  return ::keep_logs(inside("/dev"), inside("/data"), directory);
}

std::vector<std::string> Phone::init_log() const {
  std::vector<std::string> texts;
  for (const std::string& line : lines_of(read(kInitLog)))
    texts.push_back(line.substr(line.find(' ') + 1));
  return texts;
}

Program::Program(const std::string& body, mode_t mode) {
  close(mkstemp(path_));
  expect_of_phone(write_file(path_, "#!/system/bin/mksh\n" + body + "\n", mode), errno_text(path_));
}

Program::~Program() {
  unlink(path_);
}

std::vector<std::unique_ptr<Phone>> boot_all(const std::vector<std::vector<std::string>>& options) {
  std::vector<std::unique_ptr<Phone>> phones;
  for (const std::vector<std::string>& each : options)
    phones.push_back(std::make_unique<Phone>(each, Phone::Until::kBooted));
  for (const std::unique_ptr<Phone>& phone : phones)
    expect_of_phone(phone->wait_until_ready(), "a daemon does not listen");
  return phones;
}
