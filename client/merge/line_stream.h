// What is merged: lines in the order of their stream, each with a time.
#pragma once

#include <string>
#include <string_view>

#include "client/reader/stamp.h"

enum class LineKind {
  kLine,   // as it stands in a file
  kEvent,  // of the daemon's own story
  kStep,   // the clock was set back
  kHole,   // lines are missing
};

struct LogLine {
  LineKind kind = LineKind::kLine;
  std::string_view text;      // with its newline, which the last one of a file may lack
  LogStamp time = kNoStamp;   // its own, or that of the line which it follows; kNoStamp for none
  LogStamp until = kNoStamp;  // of a hole: its end; of a step: the time before it
  bool stamped = false;       // the time is its own
  bool inside = false;        // the rest of a long line
};

struct TimeRange {
  LogStamp since = kNoStamp;
  LogStamp until = kLastStamp;
  bool holds(LogStamp from, LogStamp to) const { return from <= until && to >= since; }
};

// A clock that goes back less than this is not worth a line: writers are not always in order.
constexpr LogStamp kStepMin = kSecond;

class LineStream {
 public:
  explicit LineStream(std::string stream_name) : name_(std::move(stream_name)) {}
  virtual ~LineStream() = default;
  LineStream(const LineStream&) = delete;
  LineStream& operator=(const LineStream&) = delete;

  // Goes on to the next line. False at the end of what there is now. What line() gave before is no
  // longer valid then.
  virtual bool next() = 0;

  const std::string& name() const { return name_; }
  const LogLine& line() const { return line_; }
  // Where the line belongs among other streams' lines: its time, or the latest one before it when
  // that is less than a step ahead.
  LogStamp key() const { return key_; }

 protected:
  LogLine line_;
  LogStamp key_ = kNoStamp;

 private:
  std::string name_;
};
