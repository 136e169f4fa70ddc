// The merged list of a run.
#pragma once

#include "client/commands.h"
#include "client/merge/merge.h"
#include "client/reader/run_source.h"

// Streams of the named buffers ("" for all but the touch recorder's, "all" for every one).
struct StreamChoice {
  std::vector<std::string> buffers;
  TimeRange range;
  bool follow = false;
};
StreamList open_streams(const RunSource& source, const StreamChoice& choice);

// `log`: EXIT_OK when all could be read, also when no line is shown; EXIT_FAILED when a file could
// not; EXIT_USAGE when there is no such run, or an option makes no sense.
int run_log(const Invocation& call, Environment& env);
