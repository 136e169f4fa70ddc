#include "phone/init/services.h"

#include <dirent.h>
#include <fcntl.h>
#include <grp.h>
#include <linux/capability.h>
#include <signal.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <time.h>

#include "phone/init/init_log.h"
#include "phone/init/policy.h"

namespace {

constexpr const char* kSocketDirectory = "/dev/socket/";
constexpr int kListenPollMs = 1;

}  // namespace

int64_t boot_time_ms() {
  struct timespec now;
  clock_gettime(CLOCK_BOOTTIME, &now);
  return now.tv_sec * INT64_C(1000) + now.tv_nsec / 1000000;
}

void init_log(const std::string& text) {
  append_file(kInitLog, std::to_string(boot_time_ms()) + " " + text + "\n");
}

void init_complain(const std::string& text) {
  init_log(text);
  const std::string line = "phone: " + text + "\n";
  (void)!write(STDERR_FILENO, line.data(), line.size());
}

namespace {

std::vector<pid_t> marked_processes(const std::string& name) {
  // Entries of /proc/PID/environ end with NUL; the marker may be the first one or a later one.
  const std::string entry = std::string(kServiceMarker) + "=" + name + '\0';
  std::vector<pid_t> marked;
  DIR* proc = opendir("/proc");
  if (proc == nullptr) return marked;
  while (const dirent* found = readdir(proc)) {
    long pid;
    if (!parse_number(found->d_name, 2, INT32_MAX, &pid)) continue;
    const std::string environment = read_file(std::string("/proc/") + found->d_name + "/environ");
    const size_t at = ('\0' + environment).find('\0' + entry);
    if (at != std::string::npos) marked.push_back(static_cast<pid_t>(pid));
  }
  closedir(proc);
  return marked;
}

}  // namespace

int kill_leftovers(const std::string& name) {
  // A process in exec shows no environment, so one clean scan is not enough.
  constexpr int kRounds = 200, kCleanScans = 2;
  int kills = 0;
  for (int round = 0, clean = 0; round < kRounds && clean < kCleanScans; round++) {
    const std::vector<pid_t> marked = marked_processes(name);
    clean = marked.empty() ? clean + 1 : 0;
    for (const pid_t pid : marked) {
      if (pid != getpid() && kill(pid, SIGKILL) == 0) kills++;
    }
    const struct timespec pause = {0, 500 * 1000};
    nanosleep(&pause, nullptr);
  }
  return kills;
}

Services::Services(std::vector<RcService> services, std::vector<std::string> environment,
                   PropertyArea* properties, bool keeps_to_policy)
    : environment_(std::move(environment)), properties_(properties) {
  for (RcService& service : services) {
    states_.emplace_back();
    const std::string policy = read_file(kPolicyFolder + service.name + ".te");
    if (keeps_to_policy && !policy.empty())
      states_.back().capabilities = granted_capabilities(policy, service.name);
    states_.back().service = std::move(service);
  }
}

Services::State* Services::find(const std::string& name) {
  for (State& state : states_) {
    if (state.service.name == name) return &state;
  }
  init_complain("no service " + name);
  return nullptr;
}

// Publishes the state as Android does: init.svc.NAME and init.svc_debug_pid.NAME.
void Services::show(const State& state, const char* word) {
  properties_->set(("init.svc." + state.service.name).c_str(), word);
  properties_->set(("init.svc_debug_pid." + state.service.name).c_str(),
                   state.pid > 0 ? std::to_string(state.pid).c_str() : "");
}

void Services::start_class(const std::string& klass) {
  for (State& state : states_) {
    if (state.service.klass == klass && !state.service.disabled) run(&state);
  }
}

void Services::stop_class(const std::string& klass) {
  for (State& state : states_) {
    if (state.service.klass == klass) stop(state.service.name);
  }
}

bool Services::start(const std::string& name) {
  State* state = find(name);
  return state != nullptr && run(state);
}

bool Services::stop(const std::string& name) {
  State* state = find(name);
  if (state == nullptr) return false;
  state->wanted = false;
  state->due_ms = -1;
  if (state->pid > 0) {
    kill(state->pid, SIGKILL);
    init_log("stopping " + name + " " + std::to_string(state->pid));
  } else {
    show(*state, "stopped");
  }
  return true;
}

bool Services::restart(const std::string& name) {
  if (!stop(name)) return false;
  State* state = find(name);
  state->wanted = true;
  return state->pid > 0 || run(state);
}

bool Services::make_sockets(State* state, std::vector<std::string>* environment) {
  state->listening.clear();
  for (const RcSocket& wanted : state->service.sockets) {
    struct sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const std::string path = kSocketDirectory + wanted.name;
    if (path.size() >= sizeof address.sun_path) return false;
    memcpy(address.sun_path, path.c_str(), path.size());
    unlink(path.c_str());
    Fd fd(socket(AF_UNIX, wanted.type | SOCK_CLOEXEC, 0));
    if (!fd.ok() || bind(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        lchown(path.c_str(), wanted.uid, wanted.gid) != 0 ||
        chmod(path.c_str(), wanted.mode) != 0) {
      init_complain(errno_text("cannot make " + path));
      return false;
    }
    environment->push_back("ANDROID_SOCKET_" + wanted.name + "=" + std::to_string(fd.get()));
    state->listening.push_back(std::move(fd));
  }
  return true;
}

namespace {

std::vector<char*> pointers(const std::vector<std::string>& texts) {
  std::vector<char*> all;
  for (const std::string& text : texts) all.push_back(const_cast<char*>(text.c_str()));
  all.push_back(nullptr);
  return all;
}

// From the next exec on, this process and its children have at most `granted`: a program that root
// executes gets the inheritable and the bounding set.
bool limit_capabilities(uint64_t granted) {
  __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct sets[2];
  if (syscall(SYS_capget, &header, sets) != 0) return false;
  for (auto& set : sets) set.inheritable = 0;
  if (syscall(SYS_capset, &header, sets) != 0) return false;
  for (unsigned long number = 0; prctl(PR_CAPBSET_READ, number) >= 0; number++) {
    const bool keep = (granted >> number & 1) != 0;
    if (!keep && prctl(PR_CAPBSET_DROP, number) != 0) return false;
  }
  return true;
}

// In the service's process: the state in which Android's init executes a service.
[[noreturn]] void become_service(const RcService& service, uint64_t capabilities,
                                 const std::vector<Fd>& sockets,
                                 const std::vector<std::string>& environment) {
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  setsid();
  umask(077);
  for (const Fd& socket : sockets) fcntl(socket.get(), F_SETFD, 0);
  const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
  for (int fd = 0; fd <= 2; fd++) dup2(null, fd);
  const std::vector<gid_t>& groups = service.groups;
  const bool dropped =
      chdir("/") == 0 &&
      (groups.empty() ||
       (setgroups(groups.size() - 1, groups.data() + 1) == 0 && setgid(groups[0]) == 0)) &&
      limit_capabilities(capabilities) && (service.uid == 0 || setuid(service.uid) == 0);
  if (dropped)
    execve(service.command[0].c_str(), pointers(service.command).data(),
           pointers(environment).data());
  init_log(errno_text("cannot run " + service.command[0]));
  _exit(127);
}

}  // namespace

bool Services::run(State* state) {
  state->wanted = true;
  if (state->pid > 0) return true;
  state->due_ms = -1;
  std::vector<std::string> environment = environment_;
  environment.push_back(std::string(kServiceMarker) + "=" + state->service.name);
  const pid_t pid = make_sockets(state, &environment) ? fork() : -1;
  if (pid == 0) become_service(state->service, state->capabilities, state->listening, environment);
  state->started_ms = boot_time_ms();
  if (pid < 0) {
    init_complain(errno_text("cannot start " + state->service.name));
    state->due_ms = state->started_ms + kRestartPeriodMs;
    return false;
  }
  state->pid = pid;
  init_log("started " + state->service.name + " " + std::to_string(pid));
  show(*state, "running");
  return true;
}

namespace {

std::string status_text(int status) {
  return WIFEXITED(status) ? "status " + std::to_string(WEXITSTATUS(status))
                           : "signal " + std::to_string(WTERMSIG(status));
}

}  // namespace

bool Services::exited(pid_t pid, int status) {
  for (State& state : states_) {
    if (state.pid != pid) continue;
    const std::string& name = state.service.name;
    const std::string what = name + " " + std::to_string(pid) + " " + status_text(status);
    state.pid = 0;
    state.listening.clear();
    init_log("ended " + what);
    if (!state.listened && state.wanted && !state.service.sockets.empty())
      init_complain(what + " before it listened");
    const int kills = kill_leftovers(name);
    if (kills > 0)
      init_log("killed " + std::to_string(kills) + " processes that " + name + " left");
    if (!state.wanted || state.service.oneshot) {
      state.wanted = false;
      show(state, "stopped");
    } else {
      state.due_ms = std::max(boot_time_ms(), state.started_ms + kRestartPeriodMs);
      show(state, "restarting");
    }
    return true;
  }
  return false;
}

void Services::tick() {
  const int64_t now = boot_time_ms();
  for (State& state : states_) {
    if (state.due_ms >= 0 && state.due_ms <= now) run(&state);
    bool listen = state.pid > 0 && !state.listening.empty();
    for (const Fd& fd : state.listening) {
      int accepts = 0;
      socklen_t size = sizeof accepts;
      getsockopt(fd.get(), SOL_SOCKET, SO_ACCEPTCONN, &accepts, &size);
      listen = listen && accepts != 0;
    }
    if (!listen) continue;
    // Close our copies: when the service dies, clients are refused.
    state.listening.clear();
    state.listened = true;
    init_log("listening " + state.service.name + " " + std::to_string(state.pid));
  }
}

int Services::next_tick_ms() const {
  int64_t next = -1;
  const auto sooner = [&next](int64_t ms) {
    if (next < 0 || ms < next) next = std::max<int64_t>(ms, 0);
  };
  for (const State& state : states_) {
    if (state.due_ms >= 0) sooner(state.due_ms - boot_time_ms());
    if (state.pid > 0 && !state.listening.empty()) sooner(kListenPollMs);
  }
  return static_cast<int>(next);
}

bool Services::all_listen() const {
  for (const State& state : states_) {
    if (state.wanted && !state.service.sockets.empty() && !state.listened) return false;
  }
  return true;
}
