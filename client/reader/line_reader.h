// Lines of a file or a pipe, in bounded memory.
#pragma once

#include <stdint.h>
#include <string.h>

#include <memory>
#include <string_view>

class LineReader {
 public:
  static constexpr size_t kBuffer = 256 * 1024;
  static constexpr size_t kPiece = kBuffer / 2;  // a longer line comes in several pieces

  // Reads at most `limit` bytes from `fd`, which stays the caller's, from where it stands. Forgets
  // what it held. With `joined` the bytes continue a last line that had no newline.
  void attach(int fd, int64_t limit = INT64_MAX, bool joined = false);

  // Forgets the beginning of a line whose rest is not there yet, and reads it again next time: the
  // file may be cut there meanwhile. For files only.
  void give_back();

  // What is held of the coming bytes; reads some when nothing is.
  std::string_view ahead();

  // The next line with its newline, or the next piece of a long one; valid until the next call.
  // False at the end of what there is now. A last line without a newline comes when `last` is set;
  // otherwise it is kept, as its rest may still be written.
  bool next(std::string_view* line, bool last) {
    const auto* newline = static_cast<const char*>(memchr(&bytes_[at_], '\n', end_ - at_));
    if (newline == nullptr) return next_block(line, last);
    *line = {&bytes_[at_], static_cast<size_t>(newline + 1 - &bytes_[at_])};
    at_ += line->size();
    inside_ = ends_inside_;
    ends_inside_ = false;
    return true;
  }

  // What next() gave is the rest of a line whose beginning it gave before.
  bool inside() const { return inside_; }

  int64_t missing() const { return limit_; }  // bytes that were promised and did not come

 private:
  bool next_block(std::string_view* line, bool last);
  bool read_more();

  std::unique_ptr<char[]> bytes_ = std::make_unique<char[]>(kBuffer);
  size_t at_ = 0;
  size_t end_ = 0;
  int fd_ = -1;
  int64_t limit_ = 0;
  bool inside_ = false;
  bool ends_inside_ = false;  // what was given last had no newline
};
