// The lines of a log buffer's files, of the touch recorder, or of the self log.
#pragma once

#include <string>
#include <vector>

#include "client/merge/line_stream.h"
#include "client/reader/line_reader.h"
#include "client/reader/run_source.h"
#include "client/reader/span.h"

class FileStream : public LineStream {
 public:
  // The lines of `range`. What is before it is skipped by binary search, but read from an archive
  // and where the clock was set back. With `follow` the youngest file may still grow. `source` must
  // outlive the stream.
  FileStream(const RunSource& source, const LogStream& files, const TimeRange& range, bool follow);

  bool next() override;

  // Replaces the list of files. With `last` no file grows any more.
  void update(const LogStream& files, bool last);

  // A file that could not be read, or not to its end; "" for none.
  const std::string& trouble() const { return trouble_; }

 private:
  bool growing() const { return follow_ && current_ + 1 >= files_.size(); }
  void skip_to_range();
  bool open_next();
  std::string missing_before(const RunFile& file, const RunFile* before, std::string_view head);
  void mark_hole(const RunFile& file, const RunFile* before);
  bool take();
  void mark(LineKind kind, LogStamp from, LogStamp until, const std::string& text);

  const RunSource& source_;
  std::vector<RunFile> files_;
  LineFormat format_;
  TimeRange range_;
  bool follow_;
  bool ordered_ = false;       // the files' times do not decrease, as far as their ends tell
  bool done_ = false;          // no more lines of the range
  size_t current_ = SIZE_MAX;  // the open file
  int64_t offset_ = 0;         // where to begin in the next one
  OpenFile file_;
  LineReader reader_;
  StampParser parser_;
  LogStamp last_ = kNoStamp;  // time of the line before
  bool shown_ = false;        // it is in the range, and so are unstamped lines after it
  LogLine held_;              // the line after a mark
  bool has_held_ = false;
  std::string mark_;
  std::string trouble_;
};

// Times of the first and last line of all streams.
FileSpan span_of(const RunSource& source, const std::vector<LogStream>& streams);
