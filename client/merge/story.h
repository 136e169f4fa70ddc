// What the daemon did while the run was captured, out of its own log.
#pragma once

#include <string>
#include <string_view>

#include "client/merge/file_stream.h"

// The line in plain words, "" for one that is no part of the story.
std::string story_of(std::string_view line);

// Begins with the run's start and ends with the first start after its stop. Between two runs
// logging was off, which is a hole on both sides.
class StoryStream : public FileStream {
 public:
  StoryStream(const RunSource& source, const LogStream& files, const TimeRange& range, bool follow);
  bool next() override;

 private:
  bool tell(LineKind kind, LogStamp from, LogStamp until, const std::string& text);
  bool tell_off(LogStamp until);

  std::string run_;
  std::string text_;
  std::string start_;            // the line after a hole before the start
  bool began_ = false;           // this run's start was there
  LogStamp stopped_ = kNoStamp;  // when logging was switched off; kNoStamp while it is on
  bool over_ = false;
};
