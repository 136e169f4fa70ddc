// The interface between the fault injector in a phone and the host: which calls fail, with which
// error, when, and the counts.
#pragma once

#include <stdint.h>

#include <atomic>

// The path of the real daemon in a phone with the injector.
constexpr char kRealDaemon[] = "/data/local/tmp/harrowmossd";

// Environment variable: "CALL ERRNO FIRST EVERY ARMED", see FaultPlan; ARMED is 0 or 1.
constexpr char kFaultVariable[] = "BENCH_FAULT";

// The calls numbered FIRST, FIRST + EVERY, FIRST + 2 * EVERY, ... fail; EVERY 0: just the one.
// Counted over all processes and restarts of the daemon, from arming on.
struct FaultPlan {
  char call[16];  // a name of kCalls in fault_injector.cpp
  int error;      // errno of the failed call
  int first;
  int every;
  int armed;  // at the daemon's start; otherwise the host arms
};

// Shared memory of host and injector, in this file.
constexpr char kFaultControl[] = "/dev/bench/faults";
struct FaultControl {
  std::atomic<int32_t> armed;
  std::atomic<int32_t> matched;  // calls that could have failed
  std::atomic<int32_t> failed;   // calls that failed
};
