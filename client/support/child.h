// Child processes: tools of the phone, without a shell.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

struct ChildSetup {
  std::vector<std::string> argv;  // argv[0] is the program's absolute path
  int in = -1;                    // its standard input; -1: /dev/null
  int out = -1;                   // its standard output; -1: /dev/null
  bool quiet = false;             // standard error goes to /dev/null too
  std::vector<int> kept = {};     // further descriptors it inherits, under their numbers
};

// Starts a tool. The descriptors stay the caller's. Its pid, or -1 with errno.
pid_t start_child(const ChildSetup& setup);

// Waits for a child's end: its exit status (127: the program could not be run), 128 + its signal.
int wait_child(pid_t pid);

// Runs a tool and passes its output to `take` as it comes; kills it after `limit`. Its exit
// status as wait_child() has it; -1 when it could not be started, -2 when it was killed.
int read_child(ChildSetup setup, std::chrono::milliseconds limit,
               const std::function<void(std::string_view)>& take);
