// The merged list of a run.
#pragma once

#include "client/commands.h"
#include "client/merge/merge.h"
#include "client/reader/run_source.h"

// Streams of the named buffers ("" for all but the touch recorder's, "all" for every one).
struct stream_choice {
  std::vector<std::string> buffers;
  time_range range;
  bool follow = false;
};
stream_list open_streams(const run_source& source, const stream_choice& choice);

// `log`: EXIT_OK when all could be read, also when no line is shown; EXIT_FAILED when a file could
// not; EXIT_USAGE when there is no such run, or an option makes no sense.
int run_log(const invocation& call, environment& env);
