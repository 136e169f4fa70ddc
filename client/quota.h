// The quota of all runs as the daemon's size monitor sees it (model/eviction.h): how much is used,
// and which run would go next.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "client/commands.h"
#include "client/environment.h"
#include "client/settings.h"
#include "client/volume.h"
#include "model/eviction.h"

// Bytes of `root` and all that is below it as the size monitor counts them (model/tree_size.h). 0
// when there is none.
int64_t quota_bytes(const std::string& root);

// Bytes that the logcats of the runs in `working` have allocated for lines to come.
int64_t preallocated_bytes(const std::string& working);

struct quota_report {
  logging_settings settings;
  int64_t store_bytes = 0;
  int64_t working_bytes = 0;
  int64_t used_mib = 0;   // both trees together, whole MiB
  int64_t limit_mib = 0;  // three quarters of the setting with modem or wifi
  size_verdict verdict = {};
  eviction next = eviction::nothing;
  std::string next_path;   // of the run that would go next, "" when it is none by itself
  int64_t next_bytes = 0;  // of that
  std::vector<volume_reading> volumes;
};

quota_report read_quota(const environment& env);
std::string quota_text(const quota_report& report, const environment& env);
std::string quota_json(const quota_report& report);

// `du`.
int run_du(const invocation& call, environment& env);
