// The quota of all runs as the daemon's size monitor sees it: how much is used, and which run would
// go next. The decisions are functions over values.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "client/commands.h"
#include "client/environment.h"
#include "client/settings.h"
#include "client/volume.h"

// Bytes of `root` and all that is below it as the size monitor counts them (model/tree_size.h). 0
// when there is none.
int64_t quota_bytes(const std::string& root);

struct quota_verdict {
  int64_t used_mib = 0;   // both trees together, whole MiB
  int64_t limit_mib = 0;  // three quarters of the setting with modem or wifi
  bool over = false;      // strictly more than the limit
  bool extreme = false;   // less than 128 MiB of /data free or preallocated: everything will go
};

// Bytes that the logcats of the runs in `working` have allocated for lines to come.
int64_t preallocated_bytes(const std::string& working);

// `quota_gib` is the setting, not yet shrunk; `data_available` 0 or less is unknown.
quota_verdict judge_quota(int64_t used_bytes, int quota_gib, int32_t types, int64_t data_available,
                          int64_t data_preallocated = 0);

enum class next_victim {
  kNothing,
  kRun,         // the oldest one of a tree
  kEverything,  // only the current run is left: all runs go and logging is begun anew
};

struct eviction_plan {
  next_victim what = next_victim::kNothing;
  std::string path;  // of the run
};

// What one of the trees holds: its numbered directories.
struct numbered_runs {
  std::string root;
  std::vector<std::string> names;
};

// What would go next while over quota. `current` is the number of the latest run.
eviction_plan plan_eviction(const numbered_runs& store, const numbered_runs& working,
                            int64_t current, bool logging);

struct quota_report {
  logging_settings settings;
  int64_t store_bytes = 0;
  int64_t working_bytes = 0;
  quota_verdict verdict;
  eviction_plan plan;
  int64_t victim_bytes = 0;  // of the run that would go next
  std::vector<volume_reading> volumes;
};

quota_report read_quota(const environment& env);
std::string quota_text(const quota_report& report, const environment& env);
std::string quota_json(const quota_report& report);

// `du`.
int run_du(const invocation& call, environment& env);
