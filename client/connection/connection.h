// One connection to the daemon. Every wait is bounded.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "client/support/deadline.h"
#include "client/support/environment.h"

// How a step on the connection ended.
struct Outcome {
  ExitCode code = kExitOk;
  std::string error;  // one line unless code is kExitOk
};

class Connection {
 public:
  Connection() = default;
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  // Connects with `dial` (see Environment); retries until `deadline` while the daemon's backlog
  // is full. kExitNoConnection or kExitTimedOut on failure.
  Outcome open(const std::function<int()>& dial, SteadyTime deadline);

  // Sends `frame` and waits for one whole reply, whose bytes without their size go to `reply`.
  // `tick`, when given, is called about every 100 ms meanwhile. kExitTimedOut at `deadline`,
  // kExitBadReply when the peer hangs up or announces an impossible size. Cannot be used after a
  // failure.
  Outcome exchange(std::string_view frame, SteadyTime deadline, const std::function<void()>& tick,
                   std::string* reply);

 private:
  Outcome wait(short events, SteadyTime deadline, const std::function<void()>& tick);
  Outcome read_exactly(size_t count, SteadyTime deadline, const std::function<void()>& tick,
                       std::string* bytes);
  int fd_ = -1;
};
