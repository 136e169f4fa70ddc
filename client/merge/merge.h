// One list of several streams, by time.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "client/merge/line_stream.h"

// Takes the lines of the merged list. False ends it.
class LineSink {
 public:
  virtual ~LineSink() = default;
  virtual bool take(const LineStream& stream, const LogLine& line) = 0;
};

using StreamList = std::vector<std::unique_ptr<LineStream>>;

// Gives `sink` the lines of all streams: each stream in its own order; what has no time right
// behind the line that it follows; lines of the same time in the order of the streams. When the
// clock was set back, all streams' lines before that come first: a stream that has no line which
// tells is placed by its times, and is wrong by no more than the step. At the end of all streams
// `more` is asked (null: the end), which may add streams; false ends the list.
void merge(StreamList* streams, LineSink* sink, const std::function<bool()>& more);
