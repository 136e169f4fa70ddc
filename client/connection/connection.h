// One connection to the daemon, every wait of it bounded.
#pragma once

#include <stdint.h>

#include <functional>
#include <string>
#include <string_view>

#include "client/support/deadline.h"
#include "client/support/environment.h"

// How a step on the connection ended.
struct Outcome {
  ExitCode code = kExitOk;
  std::string error;  // one line unless code is EXIT_OK
};

class Connection {
 public:
  Connection() = default;
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  // Connects by `dial` (see environment); tries again until `deadline` while the daemon's backlog
  // is full. EXIT_NO_CONNECTION or EXIT_TIMED_OUT on failure.
  Outcome open(const std::function<int()>& dial, SteadyTime deadline);

  // Sends `frame` and waits for one whole reply, whose bytes without their size go to `reply`.
  // `tick`, when given, is called about every 100 ms meanwhile. EXIT_TIMED_OUT at `deadline`,
  // EXIT_BAD_REPLY when the peer hangs up or announces an impossible size. Of no use after a
  // failure.
  Outcome exchange(std::string_view frame, SteadyTime deadline, const std::function<void()>& tick,
                   std::string* reply);

 private:
  Outcome wait(short events, SteadyTime deadline, const std::function<void()>& tick);
  Outcome read_exactly(size_t count, SteadyTime deadline, const std::function<void()>& tick,
                       std::string* bytes);
  int fd_ = -1;
};
