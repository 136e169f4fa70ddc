// Compares the content of a run with what its logger types should leave there.
#pragma once

#include <stdint.h>

#include <map>
#include <string>
#include <vector>

#include "client/commands.h"
#include "client/runs/runs.h"

struct CheckFinding {
  enum Kind { kMissing, kEmpty, kHole };
  Kind what;
  std::string type;  // a logger type's name, or "every run"
  std::string path;  // below the run; a pattern when something is missing
  std::string text;  // more about it, may be ""
  bool note;         // may well be in order: does not count as wrong
};

// Compares the files of a run (path below it, bytes) with what `types` promise; `stopped` says that
// what the stop adds must be there too. `pieces` becomes the number of promised pieces.
std::vector<CheckFinding> check_content(const std::map<std::string, int64_t>& files, int32_t types,
                                        bool stopped, int* pieces);

// The holes that the run itself tells of: replaced logcats and rotated-out generations.
std::vector<CheckFinding> check_holes(const RunReport& run);

// `check`: kExitOk when all is there, kExitFailed when something is missing, empty or lost.
int run_check(const Invocation& call, Environment& env);
