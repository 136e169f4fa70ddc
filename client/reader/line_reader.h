// Lines of a file or a pipe, in bounded memory.
#pragma once

#include <stdint.h>
#include <string.h>

#include <memory>
#include <string_view>

class LineReader {
 public:
  static constexpr size_t kBuffer = 256 * 1024;
  static constexpr size_t kPart = kBuffer / 2;  // a longer line is returned in parts

  // Reads at most `limit` bytes from the current offset of `fd`, which the caller keeps open and
  // closes. Drops buffered bytes. With `joined` the bytes continue a last line without a newline.
  void attach(int fd, int64_t limit = INT64_MAX, bool joined = false);

  // Seeks back to the start of an incomplete last line, which is read again by the next call: the
  // file may be truncated there meanwhile. For regular files only.
  void give_back();

  // The buffered bytes; reads when there are none.
  std::string_view ahead();

  // The next line with its newline, or the next part of a long one; valid until the next call.
  // False at the end of the data. A last line without a newline is returned only with `last`;
  // without it the line is kept, as its rest may still be written.
  bool next(std::string_view* line, bool last) {
    const auto* newline = static_cast<const char*>(memchr(&bytes_[at_], '\n', end_ - at_));
    if (newline == nullptr) return next_block(line, last);
    *line = {&bytes_[at_], static_cast<size_t>(newline + 1 - &bytes_[at_])};
    at_ += line->size();
    inside_ = ends_inside_;
    ends_inside_ = false;
    return true;
  }

  // The text from next() continues the line from the call before.
  bool inside() const { return inside_; }

  int64_t missing() const { return limit_; }  // bytes of the limit that were not read

 private:
  bool next_block(std::string_view* line, bool last);
  bool read_more();

  std::unique_ptr<char[]> bytes_ = std::make_unique<char[]>(kBuffer);
  size_t at_ = 0;
  size_t end_ = 0;
  int fd_ = -1;
  int64_t limit_ = 0;
  bool inside_ = false;
  bool ends_inside_ = false;  // the last text had no newline
};
