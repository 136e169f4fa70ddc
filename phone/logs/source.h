// A logcat's input: the record files of the log buffers.
#pragma once

#include <sys/types.h>

#include <memory>
#include <string>

#include "phone/logs/entry.h"
#include "phone/util.h"

// Reads the records of one buffer file, starting at the oldest. Follows the file over the holes
// that init or a clearing logcat punches.
class RecordSource {
 public:
  explicit RecordSource(const std::string& buffer);
  // The next entry; false when there is none now.
  bool next(LogEntry* entry);

 private:
  bool fill();
  bool skip_to_record();

  std::string buffer_;
  Fd fd_;
  off_t block_offset_ = 0;  // of block_[0] in the file
  size_t at_ = 0;           // within block_
  std::string block_;
};

// Null for an unknown buffer.
std::unique_ptr<RecordSource> open_log_buffer(const std::string& buffer);
