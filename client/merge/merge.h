// One list of several streams, by time.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "client/merge/line_stream.h"

// Receives the lines of the merged list. False ends it.
class LineSink {
 public:
  virtual ~LineSink() = default;
  virtual bool take(const LineStream& stream, const LogLine& line) = 0;
};

using StreamList = std::vector<std::unique_ptr<LineStream>>;

// Passes the lines of all streams to `sink`: each stream in its own order, an unstamped line right
// after the one that it follows, lines of the same time in the order of the streams. When the clock
// was set back, the lines of all streams from before that come first; a stream whose own times do
// not show the step is ordered by its times, and may be off by the length of the step. At the end
// of all streams `more` is called (null: the list ends), which may add streams; false ends the
// list.
void merge(StreamList* streams, LineSink* sink, const std::function<bool()>& more);
