// The daemon's actions while the run was captured, from the self log.
#pragma once

#include <string>
#include <string_view>

#include "client/merge/file_stream.h"

// The text for a line of the self log, "" for lines that are not shown.
std::string story_of(std::string_view line);

// From the run's start to the next start after its stop. The times without logging before and after
// the run are holes.
class StoryStream : public FileStream {
 public:
  StoryStream(const RunSource& source, const LogStream& files, const TimeRange& range, bool follow);
  bool next() override;

 private:
  bool tell(LineKind kind, LogStamp from, LogStamp until, const std::string& text);
  bool tell_off(LogStamp until);

  std::string run_;
  LogStamp run_start_;
  std::string text_;
  std::string start_;            // the line after a hole before the start
  bool began_ = false;           // the run's start was read
  LogStamp stopped_ = kNoStamp;  // when logging was switched off; kNoStamp while it is on
  bool over_ = false;
};
