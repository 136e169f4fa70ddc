// Where a logcat reads: the record files of the phone's buffers, and the kernel's own log.
#pragma once

#include <sys/types.h>

#include <memory>
#include <string>
#include <vector>

#include "phone/log_entry.h"
#include "phone/util.h"

class LogSource {
 public:
  virtual ~LogSource() = default;
  // The oldest entry that has not been taken yet; false when there is none now.
  virtual bool next(LogEntry* entry) = 0;
  // Readable when next() may have something; -1: nothing tells, look again from time to time.
  virtual int poll_fd() const { return -1; }
};

// The records of one buffer file, from the oldest that is still there. Follows the file over the
// holes that init, or a clearing logcat, makes in it.
class RecordSource : public LogSource {
 public:
  explicit RecordSource(const std::string& buffer);
  bool next(LogEntry* entry) override;

 private:
  bool fill();
  bool skip_to_record();

  std::string buffer_;
  Fd fd_;
  off_t block_offset_ = 0;  // of block_[0] in the file
  size_t at_ = 0;           // within block_
  std::string block_;
};

// The sources of one buffer; none for a buffer that a bench phone does not have.
std::vector<std::unique_ptr<LogSource>> open_log_buffer(const std::string& buffer);
