// What the daemon did while the run was captured, out of its own log.
#pragma once

#include <string>
#include <string_view>

#include "client/merge/file_stream.h"

// The line in plain words, "" for one that is no part of the story.
std::string story_of(std::string_view line);

// Ends with the first start behind the run's stop: what lies between is a hole, logging off.
class StoryStream : public FileStream {
 public:
  StoryStream(const RunSource& source, const LogStream& files, const TimeRange& range, bool follow);
  bool next() override;

 private:
  bool tell(const std::string& text, LineKind kind, log_stamp until);

  std::string run_;
  std::string text_;
  bool began_ = false;            // this run's start was there
  log_stamp stopped_ = kNoStamp;  // when logging was switched off
  bool over_ = false;
};
