// The size of a feedback bundle, estimated without the daemon.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "client/commands.h"

// One selection of a bundle.
struct EstimateRow {
  std::string name;   // of the selection; "properties" is in every bundle
  int64_t bytes = 0;  // that it would take at the destination, in whole blocks
  std::string note;   // what the figure leaves out, "" when nothing
};

struct EstimateReport {
  std::string destination;
  std::vector<EstimateRow> rows;
  int64_t wanted = 0;  // bytes; a directory that two selections copy counts once
  int64_t available = 0;
  bool known = false;        // `available` is known
  bool on_data = false;      // the copy leaves kDataReserve free (model/data_room.h)
  int64_t preallocated = 0;  // what counts as free for that
};

// Measures the selections of `mask`: directories as they are now, the log buffers by dumping them
// to nowhere as the daemon would (7 s at most), the property list by printing it.
EstimateReport estimate_bundle(const Environment& env, int32_t mask,
                               const std::string& destination);

std::string estimate_text(const EstimateReport& report);
std::string estimate_json(const EstimateReport& report);

// `feedback`: with --estimate shows the estimate (kExitFailed when room does not suffice), else
// sends the request.
int run_feedback(const Invocation& call, Environment& env);
