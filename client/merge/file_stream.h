// The lines of a log buffer's files, of the touch recorder's, or of the daemon's own log.
#pragma once

#include <string>
#include <vector>

#include "client/merge/line_stream.h"
#include "client/reader/line_reader.h"
#include "client/reader/run_source.h"
#include "client/reader/span.h"

class file_stream : public line_stream {
 public:
  // Gives the lines of `range`; what lies before it is not read unless the files come from an
  // archive or their clock stepped back. With `follow` the youngest file may still grow. `source`
  // must outlive the stream.
  file_stream(const run_source& source, const log_stream& files, const time_range& range,
              bool follow);

  bool next() override;

  // The files as they are now. With `last` nothing grows any more.
  void update(const log_stream& files, bool last);

  // A file that could not be read, or not to its end; "" for none.
  const std::string& trouble() const { return trouble_; }

 private:
  bool growing() const { return follow_ && current_ + 1 >= files_.size(); }
  void skip_to_range();
  bool open_next();
  bool judge_hole(const run_file& file, const run_file* before);
  bool take(std::string_view text);
  void mark(line_kind kind, log_stamp from, log_stamp until, const std::string& text);

  const run_source& source_;
  std::vector<run_file> files_;
  line_format format_;
  time_range range_;
  bool follow_;
  bool ordered_ = false;       // the files' times do not decrease, as far as their ends tell
  bool done_ = false;          // nothing of the range can come
  size_t current_ = SIZE_MAX;  // the open file
  int64_t offset_ = 0;         // where to begin in the next one
  open_file file_;
  line_reader reader_;
  stamp_parser parser_;
  log_stamp last_ = kNoStamp;  // time of the line before
  bool shown_ = false;         // it is of the range, and so are the lines without a time behind it
  log_line held_;              // comes after a mark
  bool has_held_ = false;
  std::string mark_;
  std::string trouble_;
};

// Times of the first and last line of all streams.
file_span span_of(const run_source& source, const std::vector<log_stream>& streams);
