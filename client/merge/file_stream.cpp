#include "client/merge/file_stream.h"

#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

namespace {

constexpr int64_t kTouchRotated = 3;  // files that the recorder keeps beside the youngest
constexpr const char* kMarkHead = "--------- ";  // as logcat's own lines about itself begin

FileSpan span_of_file(const RunSource& source, const RunFile& file, LineFormat format) {
  OpenFile opened;
  if (!opened.open(source, file)) return {};
  StampParser parser(format, file.written);
  if (opened.is_file()) {
    struct stat info = {};
    fstat(opened.fd(), &info);
    return read_span(opened.fd(), info.st_size, parser);
  }
  FileSpan span;
  LineReader reader;
  reader.attach(opened.fd(), file.bytes);
  for (std::string_view line; reader.next(&line, true);) {
    const LogStamp time = reader.inside() ? kNoStamp : parser.parse(line);
    if (time == kNoStamp) continue;
    if (span.first == kNoStamp) span.first = time;
    span.last = time;
  }
  return span;
}

std::string seconds_text(LogStamp duration) {
  char text[48];
  snprintf(text, sizeof text, "%lld.%03d s", static_cast<long long>(duration / kSecond),
           static_cast<int>(duration % kSecond / 1000));
  return text;
}

}  // namespace

FileSpan span_of(const RunSource& source, const std::vector<LogStream>& streams) {
  FileSpan whole;
  const auto add = [&](const FileSpan& span) {
    if (span.first == kNoStamp) return;
    if (whole.first == kNoStamp || span.first < whole.first) whole.first = span.first;
    whole.last = std::max(whole.last, span.last);
  };
  for (const LogStream& stream : streams) {
    if (stream.files.empty() || stream.name == kDaemonStream) continue;
    add(span_of_file(source, stream.files.front(), stream.format));
    for (size_t i = stream.files.size(); i > 0; --i) {  // the youngest may be empty
      const FileSpan span = span_of_file(source, stream.files[i - 1], stream.format);
      add(span);
      if (span.last != kNoStamp) break;
    }
  }
  return whole;
}

FileStream::FileStream(const RunSource& source, const LogStream& files, const TimeRange& range,
                       bool follow)
    : LineStream(files.name),
      source_(source),
      files_(files.files),
      format_(files.format),
      range_(range),
      follow_(follow) {
  shown_ = range.since == kNoStamp;
  const bool whole = range.since == kNoStamp && range.until == kLastStamp;
  if (!whole && source.archive.empty()) skip_to_range();
}

// Reads the first and last times of the files. If they are in order, starts at the file and offset
// of the range.
void FileStream::skip_to_range() {
  ordered_ = true;
  LogStamp latest = kNoStamp;
  LogStamp before = kNoStamp;  // the latest time before `first`
  size_t first = files_.size();
  for (size_t i = 0; i < files_.size(); i++) {
    const FileSpan span = span_of_file(source_, files_[i], format_);
    if (span.first == kNoStamp) continue;
    if (latest != kNoStamp && span.first <= latest - kStepMin) ordered_ = false;
    if (span.last <= span.first - kStepMin) ordered_ = false;
    if (first == files_.size() && span.last >= range_.since) {
      first = i;
      before = latest;
    }
    latest = span.last;
  }
  if (range_.since == kNoStamp || !ordered_) return;
  done_ = first == files_.size() && !follow_;
  if (first == files_.size()) return;
  OpenFile file;
  struct stat info = {};
  if (!file.open(source_, files_[first]) || fstat(file.fd(), &info) != 0) return;
  // kStepMin earlier: lines may be slightly out of order.
  offset_ = find_time(file.fd(), info.st_size, StampParser(format_, files_[first].written),
                      range_.since - kStepMin);
  current_ = first - 1;  // 0 - 1 is none
  last_ = before;
}

void FileStream::mark(LineKind kind, LogStamp from, LogStamp until, const std::string& text) {
  mark_ = kMarkHead + (from == kNoStamp ? "" : stamp_text(from) + " ") + text + "\n";
  line_.kind = kind;
  line_.text = mark_;
  line_.time = from;
  line_.until = until;
  line_.stamped = true;
  line_.inside = false;
}

// The reason why lines are missing between `before` (null: none) and `file`, which starts with
// `head`; "" when none are.
std::string FileStream::missing_before(const RunFile& file, const RunFile* before,
                                       std::string_view head) {
  const bool rotated = file.generation > 0 && !opens_logcat(head);
  if (before == nullptr) {
    if (format_ == LineFormat::kTouch) {
      return file.generation < kTouchRotated ? "" : "older lines may have been rotated out";
    }
    const bool late = source_.start != kNoStamp && first_stamp(head, parser_) > source_.start;
    if (rotated && (late || format_ == LineFormat::kThreadtime)) {
      return "older lines were rotated out";
    }
  } else if (before->replacement != file.replacement) {
    return std::string("its logcat was replaced, lines just before it may be lost") +
           (rotated ? "; what it wrote first was rotated out" : "");
  } else if (before->generation != file.generation + 1) {
    return "files ." + std::to_string(before->generation - 1) + " to ." +
           std::to_string(file.generation + 1) + " are missing";
  }
  return "";
}

// Makes line_ a mark if lines are missing before `file`, which has just been opened.
void FileStream::mark_hole(const RunFile& file, const RunFile* before) {
  const std::string_view head = reader_.ahead();
  if (head.empty()) return;
  const std::string reason = missing_before(file, before, head);
  if (reason.empty()) return;
  const LogStamp to = first_stamp(head, parser_);
  LogStamp from = before == nullptr ? source_.start : last_;
  if (from == kNoStamp || (to != kNoStamp && from > to)) from = to;
  if (from == kNoStamp || !range_.holds(from, to == kNoStamp ? from : to)) return;
  if (before == nullptr && key_ == kNoStamp) key_ = from;
  mark(LineKind::kHole, from, to,
       "hole: " + name() + ": " + reason + (to == kNoStamp ? "" : "; until " + stamp_text(to)));
}

// Opens the next file. False when there is none. line_ may be a mark afterwards: see its kind.
bool FileStream::open_next() {
  const size_t following = current_ + 1;  // none + 1 is 0
  if (following >= files_.size()) return false;
  const RunFile& file = files_[following];
  const RunFile* before = current_ == SIZE_MAX || offset_ > 0 ? nullptr : &files_[current_];
  current_ = following;
  line_.kind = LineKind::kLine;
  if (!file_.open(source_, file, &files_[0] + files_.size())) {
    trouble_ = "cannot read " + file.path;
    return true;
  }
  if (file_.is_file()) lseek(file_.fd(), offset_, SEEK_SET);
  parser_ = StampParser(format_, file.written);
  // The touch recorder may rotate in the middle of a line.
  const bool joined = format_ == LineFormat::kTouch && before != nullptr &&
                      before->generation == file.generation + 1;
  reader_.attach(file_.fd(), file_.is_file() ? INT64_MAX : file.bytes, joined);
  if (offset_ == 0) mark_hole(file, before);
  offset_ = 0;
  return true;
}

// Completes line_ from its text. When the clock was set back, line_ becomes the mark for that, and
// the line is held. False for lines outside the range.
bool FileStream::take() {
  line_.kind = LineKind::kLine;
  line_.inside = reader_.inside();
  const LogStamp time = line_.inside ? kNoStamp : parser_.parse(line_.text);
  line_.stamped = time != kNoStamp;
  if (!line_.stamped) return shown_;
  line_.time = time;
  shown_ = range_.holds(time, time);
  if (ordered_ && time > range_.until && time - kStepMin > range_.until) done_ = true;
  const LogStamp before = last_;
  last_ = time;
  if (before == kNoStamp || time > before - kStepMin) {
    key_ = std::max(key_, time);
    return shown_;
  }
  key_ = time;
  if (!range_.holds(time, before)) return shown_;
  held_ = line_;
  has_held_ = shown_;
  mark(LineKind::kStep, time, before,
       "clock: " + name() + ": set back by " + seconds_text(before - time) + ", from " +
           stamp_text(before));
  return true;
}

bool FileStream::next() {
  if (has_held_) {
    has_held_ = false;
    line_ = held_;
    return true;
  }
  while (!done_) {
    if (file_.fd() != -1 && reader_.next(&line_.text, !growing())) {
      if (take()) return true;
      continue;
    }
    if (file_.fd() != -1 && !file_.is_file() && reader_.missing() > 0) {
      trouble_ = files_[current_].path + " ends early in the archive";
    }
    if (!open_next()) {
      // The stop truncates an incomplete last line and writes it again.
      if (growing() && file_.fd() != -1) reader_.give_back();
      return false;
    }
    if (line_.kind != LineKind::kLine) return true;
  }
  return false;
}

void FileStream::update(const LogStream& files, bool last) {
  struct stat ours = {};
  const bool open = file_.fd() != -1 && fstat(file_.fd(), &ours) == 0;
  const std::string path = current_ < files_.size() ? files_[current_].path : "";
  size_t same = SIZE_MAX;
  for (size_t i = 0; i < files.files.size() && open; i++) {
    struct stat info = {};
    if (stat(files.files[i].place.c_str(), &info) != 0) continue;
    if (info.st_ino == ours.st_ino && info.st_dev == ours.st_dev) same = i;
  }
  // After a move to another file system the inodes differ: match by path.
  for (size_t i = 0; i < files.files.size() && open && same == SIZE_MAX; i++) {
    if (files.files[i].path == path) same = i;
  }
  if (last) follow_ = false;
  // During a move to the store files vanish one by one. A later refresh finds them there.
  if (open && same == SIZE_MAX) return;
  files_ = files.files;
  current_ = same;
}
