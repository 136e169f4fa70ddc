// Services as Android's init runs them. Used by the phone's init only, in its one thread.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "phone/init/policy.h"
#include "phone/init/rc_parser.h"
#include "phone/util.h"
#include "platform/linux/property_area.h"

// A dead service is restarted at once, but not sooner than this after its last start.
constexpr int64_t kRestartPeriodMs = 5000;

// In the environment of every descendant of a service, to find what a dead service left behind.
// Parentage does not tell (orphans become init's), nor do process groups and sessions (workers make
// their own); the environment survives fork and exec. Android uses the service's cgroup, which a
// user namespace does not get.
constexpr const char* kServiceMarker = "BENCH_SERVICE";

int64_t boot_time_ms();

class Services {
 public:
  // `environment`: for every service, besides its sockets and its marker. With `keeps_to_policy` a
  // service NAME with a NAME.te in kPolicyFolder gets only the capabilities granted there; any
  // other gets all.
  Services(std::vector<RcService> services, std::vector<std::string> environment,
           PropertyArea* properties, bool keeps_to_policy);

  void start_class(const std::string& klass);
  void stop_class(const std::string& klass);
  // False when there is no such service. Starting a running one does nothing; stopping kills it and
  // what it started; it stays stopped until started by name.
  bool start(const std::string& name);
  bool stop(const std::string& name);
  bool restart(const std::string& name);

  // Call when `pid` was reaped. False when it is no service.
  bool exited(pid_t pid, int status);
  // Starts what is due, and checks which services listen.
  void tick();
  // Milliseconds until tick() is due; -1: never.
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
    std::vector<Fd> listening;  // our copies, closed once the service listens
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
