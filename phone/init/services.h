// Services as Android's init runs them. Used by the phone's init only, in its one thread.
#pragma once

#include <stdint.h>

#include <map>
#include <string>
#include <vector>

#include "phone/init/policy.h"
#include "phone/init/rc_parser.h"
#include "phone/util.h"
#include "platform/linux/property_area.h"

// A service that died is started again at once, but not sooner than this after its last start.
constexpr int64_t kRestartPeriodMs = 5000;

// In the environment of everything that a service starts: tells what a dead service left behind.
// Parentage cannot (orphans become init's, whoever started them), nor can process groups and
// sessions (workers make their own); the environment is kept across fork and exec. Android asks the
// service's cgroup, which a user namespace does not get.
constexpr const char* kServiceMarker = "BENCH_SERVICE";

int64_t boot_time_ms();

class Services {
 public:
  // `environment` is what every service gets beside its sockets and its marker. With
  // `keeps_to_policy` a service of which kPolicyFolder has a NAME.te runs with the capabilities
  // that this grants; any other has them all.
  Services(std::vector<RcService> services, std::vector<std::string> environment,
           PropertyArea* properties, bool keeps_to_policy);

  void start_class(const std::string& klass);
  void stop_class(const std::string& klass);
  // False when there is no such service. Starting a running one does nothing; stopping kills it and
  // what it started, and keeps it down until it is started by name.
  bool start(const std::string& name);
  bool stop(const std::string& name);
  bool restart(const std::string& name);

  // Tells that `pid` was reaped. False when it is no service.
  bool exited(pid_t pid, int status);
  // Starts what is due, and looks who listens by now.
  void tick();
  // Milliseconds until tick() has something to do; -1: nothing.
  int next_tick_ms() const;
  // True once every started service has listened on all its sockets.
  bool all_listen() const;

 private:
  struct State {
    RcService service;
    uint64_t capabilities = kEveryCapability;
    pid_t pid = 0;
    int64_t started_ms = -kRestartPeriodMs;
    int64_t due_ms = -1;        // when it will be started again; -1: not waiting
    bool wanted = false;        // started and not stopped since
    bool listened = false;      // since the phone booted
    std::vector<Fd> listening;  // ours until the service listens, then closed
  };

  State* find(const std::string& name);
  bool run(State* state);
  bool make_sockets(State* state, std::vector<std::string>* environment);
  void show(const State& state, const char* word);

  std::vector<State> states_;
  std::vector<std::string> environment_;
  PropertyArea* properties_;
};

// Kills every process whose environment has kServiceMarker=`name`, until none is left; the number
// of kills. Never the caller.
int kill_leftovers(const std::string& name);
