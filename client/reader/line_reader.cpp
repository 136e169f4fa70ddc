#include "client/reader/line_reader.h"

#include <errno.h>
#include <unistd.h>

#include <algorithm>

void LineReader::attach(int fd, int64_t limit, bool joined) {
  fd_ = fd;
  limit_ = limit;
  at_ = end_ = 0;
  inside_ = false;
  ends_inside_ = ends_inside_ && joined;
}

// False at the end of the data or on a read error.
bool LineReader::read_more() {
  if (at_ != 0) memmove(&bytes_[0], &bytes_[at_], end_ - at_);
  end_ -= at_;
  at_ = 0;
  const size_t room = static_cast<size_t>(std::min<int64_t>(kBuffer - end_, limit_));
  ssize_t got;
  do {
    got = read(fd_, &bytes_[end_], room);
  } while (got == -1 && errno == EINTR);
  if (got <= 0) return false;
  end_ += static_cast<size_t>(got);
  limit_ -= got;
  return true;
}

void LineReader::give_back() {
  lseek(fd_, -static_cast<off_t>(end_ - at_), SEEK_CUR);
  at_ = end_ = 0;
}

std::string_view LineReader::ahead() {
  if (at_ == end_) read_more();
  return {&bytes_[at_], end_ - at_};
}

// The buffered bytes have no newline.
bool LineReader::next_block(std::string_view* line, bool last) {
  while (end_ - at_ < kPart) {
    const size_t known = end_ - at_;
    if (!read_more()) {
      if (end_ == 0 || !last) return false;
      break;
    }
    if (memchr(&bytes_[known], '\n', end_ - known) != nullptr) return next(line, last);
  }
  *line = {&bytes_[at_], std::min(end_ - at_, kPart)};
  at_ += line->size();
  inside_ = ends_inside_;
  ends_inside_ = true;
  return true;
}
