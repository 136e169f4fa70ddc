// A source of lines for the merge.
#pragma once

#include <string>
#include <string_view>

#include "client/reader/stamp.h"

enum class LineKind {
  kLine,   // of a file, unchanged
  kEvent,  // a message of the self log, in other words
  kStep,   // the clock was set back
  kHole,   // lines are missing
};

struct LogLine {
  LineKind kind = LineKind::kLine;
  std::string_view text;      // with its newline, which the last one of a file may lack
  LogStamp time = kNoStamp;   // its own, or that of the line which it follows; kNoStamp for none
  LogStamp until = kNoStamp;  // of a hole: its end; of a step: the time before it
  bool stamped = false;       // the time is its own
  bool inside = false;        // continues the line before
};

struct TimeRange {
  LogStamp since = kNoStamp;
  LogStamp until = kLastStamp;
  bool holds(LogStamp from, LogStamp to) const { return from <= until && to >= since; }
};

// Smaller steps back are not marked: the writers of a log are not always in order.
constexpr LogStamp kStepMin = kSecond;

class LineStream {
 public:
  explicit LineStream(std::string stream_name) : name_(std::move(stream_name)) {}
  virtual ~LineStream() = default;
  LineStream(const LineStream&) = delete;
  LineStream& operator=(const LineStream&) = delete;

  // Advances to the next line, which invalidates line().text. False at the end of the data.
  virtual bool next() = 0;

  const std::string& name() const { return name_; }
  const LogLine& line() const { return line_; }
  // The time that the merge orders by: the line's, or the latest one before it if that is less than
  // kStepMin later.
  LogStamp key() const { return key_; }

 protected:
  LogLine line_;
  LogStamp key_ = kNoStamp;

 private:
  std::string name_;
};
