#include "phone/logs/source.h"

#include <fcntl.h>
#include <string.h>

#include <algorithm>
#include <iterator>

#include "phone/logs/buffers.h"
#include "platform/linux/log_record.h"

namespace {

constexpr size_t kBlock = 256 * 1024;

}  // namespace

RecordSource::RecordSource(const std::string& buffer)
    : buffer_(buffer), fd_(open(log_buffer_path(buffer).c_str(), O_RDONLY | O_CLOEXEC)) {}

// Reads the next block. False at the end of the file.
bool RecordSource::fill() {
  block_offset_ += static_cast<off_t>(at_);
  at_ = 0;
  block_.resize(kBlock);
  const ssize_t n = pread(fd_.get(), block_.data(), kBlock, block_offset_);
  block_.resize(n > 0 ? n : 0);
  return n > 0;
}

// Skips a hole and the rest of a record cut by it. Records are aligned to 4 and start with the
// magic.
bool RecordSource::skip_to_record() {
  const off_t data = lseek(fd_.get(), block_offset_ + static_cast<off_t>(at_), SEEK_DATA);
  if (data < 0) return false;
  if (data > block_offset_ + static_cast<off_t>(at_)) {
    block_offset_ = data & ~static_cast<off_t>(3);
    at_ = 0;
    block_.clear();
    if (!fill()) return false;
  }
  while (true) {
    for (; at_ + sizeof kLogRecordMagic <= block_.size(); at_ += 4) {
      uint32_t word;
      memcpy(&word, block_.data() + at_, sizeof word);
      if (word == kLogRecordMagic) return true;
    }
    if (block_.size() < kBlock) return false;  // end of file
    if (!fill()) return false;
  }
}

bool RecordSource::next(LogEntry* entry) {
  if (!fd_.ok()) return false;
  LogRecord record;
  for (bool refilled = false;;) {
    const size_t left = block_.size() - at_;
    if (left >= sizeof record) {
      memcpy(&record, block_.data() + at_, sizeof record);
      if (record.magic != kLogRecordMagic || record.size > kLogPayloadMax) {
        at_ += 4;
        if (!skip_to_record()) return false;
        continue;
      }
      if (left >= sizeof record + record.size) break;
    }
    // A partial record is still being written: retry on the next call.
    if (refilled || !fill()) return false;
    refilled = true;
  }
  const char* tag = block_.data() + at_ + sizeof record;
  const size_t tag_length = strnlen(tag, record.size);
  const char* message = tag + std::min<size_t>(tag_length + 1, record.size);
  entry->buffer = buffer_;
  entry->time_ns = record.sec * INT64_C(1000000000) + record.nsec;
  entry->pid = record.pid;
  entry->tid = record.tid;
  entry->uid = record.uid_low;
  entry->priority = record.priority >= 2 && record.priority <= 8 ? record.priority : 4;
  entry->tag.assign(tag, tag_length);
  entry->message.assign(message, strnlen(message, tag + record.size - message));
  at_ += (sizeof record + record.size + 3) & ~size_t{3};
  return true;
}

std::unique_ptr<RecordSource> open_log_buffer(const std::string& buffer) {
  const auto known = std::find(std::begin(kLogBuffers), std::end(kLogBuffers), buffer);
  return known == std::end(kLogBuffers) ? nullptr : std::make_unique<RecordSource>(buffer);
}
