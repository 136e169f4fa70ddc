// The quota of all runs (model/eviction.h): how much is used, and which run would go next.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "client/commands.h"
#include "client/support/environment.h"
#include "client/support/settings.h"
#include "client/support/volume.h"
#include "model/eviction.h"

// Bytes that the logcats of the runs in `working` have allocated for lines to come.
int64_t preallocated_bytes(const std::string& working);

struct QuotaReport {
  LoggingSettings settings;
  int64_t store_bytes = 0;
  int64_t working_bytes = 0;
  SizeVerdict verdict = {};
  Eviction next = Eviction::kNothing;
  std::string next_path;   // of the run that would go next, "" when it is none by itself
  int64_t next_bytes = 0;  // of that
  std::vector<VolumeReading> volumes;
};

QuotaReport read_quota(const Environment& env);
std::string quota_text(const QuotaReport& report, const Environment& env);
std::string quota_json(const QuotaReport& report);

// `du`.
int run_du(const Invocation& call, Environment& env);
