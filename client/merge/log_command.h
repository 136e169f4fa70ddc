// The merged list of a run.
#pragma once

#include "client/commands.h"
#include "client/merge/merge.h"
#include "client/reader/run_source.h"

// Streams of the named buffers; of all but touch for an empty list, of all for "all".
struct StreamChoice {
  std::vector<std::string> buffers;
  TimeRange range;
  bool follow = false;
};
StreamList open_streams(const RunSource& source, const StreamChoice& choice);

// `log`: kExitOk when every file could be read, also without a line shown; kExitFailed when one
// could not; kExitUsage for an unknown run or a wrong option.
int run_log(const Invocation& call, Environment& env);
