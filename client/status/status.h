// `status`: from properties, /proc and directory sizes, without a connection to the daemon.
#pragma once

#include <stdint.h>
#include <sys/types.h>

#include <string>
#include <vector>

#include "client/commands.h"
#include "client/support/environment.h"
#include "client/support/processes.h"
#include "client/support/settings.h"

struct StatusReport {
  LoggingSettings settings;  // as set; what runs is in `workers`
  std::string working_dir;   // where the latest run is captured, "" before the first
  int64_t working_bytes = 0;
  int64_t used_bytes = 0;  // all runs, finished or not: what counts against the quota
  pid_t daemon = 0;        // 0: does not run
  pid_t size_monitor = 0;
  std::vector<Worker> workers;  // without the size monitor itself
};

StatusReport read_status(const Environment& env);

// The commands `status` and `types`.
int run_status(const Invocation& call, Environment& env);
int run_types(const Invocation& call, Environment& env);

std::string status_text(const StatusReport& report);
std::string status_json(const StatusReport& report);
