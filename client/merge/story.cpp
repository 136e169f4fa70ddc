#include "client/merge/story.h"

#include <algorithm>
#include <iterator>

#include "client/reader/self_log.h"
#include "client/support/text.h"

namespace {

constexpr const char* kStart = "logging was started: run ";
constexpr const char* kStop = "logging was stopped";
constexpr log_stamp kBeforeStart = 2 * kSecond;  // the name is made a moment before the line

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

TimeRange from_start(TimeRange range, log_stamp start) {
  if (start != kNoStamp) range.since = std::max(range.since, start - kBeforeStart);
  return range;
}

}  // namespace

std::string story_of(std::string_view line) {
  const std::string told = retell(kStory, std::size(kStory), line);
  return one_line(told.substr(0, told.find_last_not_of(" \r\n") + 1));
}

StoryStream::StoryStream(const RunSource& source, const LogStream& files, const TimeRange& range,
                         bool follow)
    : FileStream(source, files, from_start(range, source.start), follow),
      run_(source.start == kNoStamp ? "" : source.name),
      began_(range.since != kNoStamp && range.since > source.start) {}

// Makes the line one of ours.
bool StoryStream::tell(const std::string& text, LineKind kind, log_stamp until) {
  const log_stamp from = until == kNoStamp ? line_.time : stopped_;
  text_ = "--------- " + stamp_text(from) + " " + text + "\n";
  line_.kind = kind;
  line_.text = text_;
  line_.time = from;
  line_.until = until;
  return true;
}

bool StoryStream::next() {
  while (!over_ && FileStream::next()) {
    if (line_.kind != LineKind::kLine) return true;
    const std::string told = line_.stamped ? story_of(line_.text) : "";
    if (told.empty()) continue;
    if (told.rfind(kStart, 0) == 0) {
      const bool ours = run_.empty() || told.substr(std::string_view(kStart).size()) == run_;
      if (!ours && stopped_ != kNoStamp) {
        over_ = true;
        return tell("hole: logging was off until " + stamp_text(line_.time), LineKind::kHole,
                    line_.time);
      }
      began_ = began_ || ours;
    }
    if (!began_ && !run_.empty()) continue;  // the end of the run before this one
    if (told == kStop) stopped_ = line_.time;
    return tell("daemon: " + told, LineKind::kEvent, kNoStamp);
  }
  return false;
}
