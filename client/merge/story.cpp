#include "client/merge/story.h"

#include <algorithm>
#include <iterator>

#include "client/reader/self_log.h"
#include "client/support/text.h"

namespace {

constexpr const char* kStart = "logging was started: run ";
constexpr const char* kStop = "logging was stopped";

// clang-format off

constexpr ToldMessage kStory[] = {
    {"main",                  "After create directories",         "the daemon started", false},
    {"start_debug_log",       "current work dir : ",              kStart, true},
    {"",                      "There is not enough d",            "too little free space: logging stays off", false},
    {"stop_debug_log",        "function invoked",                 "logging is being stopped", false},
    {"stop_debug_log",        "stop debug log over",              kStop, false},
    {"",                      "current_buffer = ",                "a logcat ended and is replaced: ", true},
    {"monitorLogSizeThread",  "now delete oldest dir ",           "evicted: ", true},
    {"",                      "we have deleted logs all we can",  "over quota with one run only: it is deleted, logging begins anew", false},
    {"signal_waitpid_parent", "log size monitor killed",          "the size monitor was killed and is started again", false},
    {"",                      "killed by signal",                 "the daemon was told to end: ", true},
};

// clang-format on

// Reads the log from its beginning if the run's start is in the range: an earlier stop tells since
// when logging was off.
TimeRange with_past(TimeRange range, LogStamp start) {
  if (start != kNoStamp && range.since <= start) range.since = kNoStamp;
  return range;
}

}  // namespace

std::string story_of(std::string_view line) {
  const std::string told = retell(kStory, std::size(kStory), line);
  return one_line(told.substr(0, told.find_last_not_of(" \r\n") + 1));
}

StoryStream::StoryStream(const RunSource& source, const LogStream& files, const TimeRange& range,
                         bool follow)
    : FileStream(source, files, with_past(range, source.start), follow),
      run_(source.start == kNoStamp ? "" : source.name),
      run_start_(source.start),
      began_(range.since != kNoStamp && range.since > source.start) {}

// Makes line_ a line of the list.
bool StoryStream::tell(LineKind kind, LogStamp from, LogStamp until, const std::string& text) {
  text_ = "--------- " + stamp_text(from) + " " + text + "\n";
  line_.kind = kind;
  line_.text = text_;
  line_.time = from;
  line_.until = until;
  return true;
}

bool StoryStream::tell_off(LogStamp until) {
  return tell(LineKind::kHole, stopped_, until, "hole: logging was off until " + stamp_text(until));
}

bool StoryStream::next() {
  if (!start_.empty()) {
    const std::string told = std::move(start_);
    start_.clear();
    return tell(LineKind::kEvent, line_.until, kNoStamp, told);
  }
  while (!over_ && FileStream::next()) {
    // The start is missing.
    if (line_.kind == LineKind::kHole && line_.until > run_start_) began_ = true;
    const bool logged = line_.kind == LineKind::kLine && line_.stamped;
    const std::string story = logged ? story_of(line_.text) : "";
    const LogStamp time = line_.time;
    const std::string told = "daemon: " + story;
    if (story.rfind(kStart, 0) == 0) {
      const bool ours = run_.empty() || story.substr(std::string_view(kStart).size()) == run_;
      over_ = began_ && !ours && stopped_ != kNoStamp;
      if (over_) return tell_off(time);
      began_ = began_ || ours;
      if (ours && stopped_ != kNoStamp) {
        start_ = told;
        tell_off(time);
        stopped_ = kNoStamp;
        return true;
      }
      stopped_ = kNoStamp;
    }
    if (story == kStop) stopped_ = time;
    if (!began_ && !run_.empty()) continue;  // an earlier run
    if (line_.kind != LineKind::kLine) return true;
    if (!story.empty()) return tell(LineKind::kEvent, time, kNoStamp, told);
  }
  return false;
}
