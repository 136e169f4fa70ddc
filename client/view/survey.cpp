#include "client/view/survey.h"

#include <algorithm>

#include "client/merge/story.h"
#include "client/reader/run_files.h"
#include "client/support/text.h"

namespace {

constexpr size_t kMarksMax = 2000;
constexpr size_t kTagsMax = 20000;  // later ones are not counted
constexpr size_t kPidsMax = 20000;
constexpr size_t kTagBytes = 64;
constexpr size_t kTextBytes = 240;
constexpr size_t kCrashesMax = 50;
constexpr int kCrashLines = 6;
constexpr std::string_view kOwnTag = "harrowmossd";

// clang-format off

// Lines that are marks, by buffer, tag ("": any) and beginning of the message.
constexpr struct {
  std::string_view buffer;
  std::string_view tag;
  std::string_view message;
  const char* kind;
} kMarkLines[] = {
    {"crash",  "AndroidRuntime",      "FATAL EXCEPTION",       "crash"},
    {"crash",  "libc",                "Fatal signal ",         "crash"},
    {"crash",  "DEBUG",               "*** *** ***",           "crash"},
    {"system", "ActivityManager",     "ANR in ",               "anr"},
    {"main",   "ActivityManager",     "ANR in ",               "anr"},
    {"main",   "tombstoned",          "Tombstone written to",  "tombstone"},
    {"system", "tombstoned",          "Tombstone written to",  "tombstone"},
    {"kernel", "",                    "Linux version ",        "reboot"},
    {"events", "boot_progress_start", "",                      "reboot"},
};

// The same for the daemon's actions.
constexpr struct {
  std::string_view text;
  const char* kind;
} kMarkStories[] = {
    {"evicted: ",                  "evicted"},
    {"over quota ",                "evicted"},
    {"a logcat ended ",            "replaced"},
    {"logging was started",        "start"},
    {"logging was stopped",        "stop"},
    {"the daemon started",         "daemon"},
    {"the daemon was told to end", "daemon"},
    {"the size monitor was",       "daemon"},
    {"too little free space",      "daemon"},
};

// clang-format on

bool begins_with(std::string_view text, std::string_view head) {
  return text.substr(0, head.size()) == head;
}

std::string shown(std::string_view text) {
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.remove_suffix(1);
  return one_line(text.substr(0, kTextBytes));
}

int64_t interval_of(LogStamp time, LogStamp width) {
  return time / width - (time % width < 0 ? 1 : 0);
}

const char* kind_of_story(std::string_view told) {
  for (const auto& row : kMarkStories) {
    if (begins_with(told, row.text)) return row.kind;
  }
  return nullptr;
}

}  // namespace

void Timeline::widen() {
  width_ *= 2;
  for (auto& lane : lanes_) {
    std::map<int64_t, IntervalCounts> wider;
    for (const auto& [number, counts] : lane) {
      IntervalCounts& sum = wider[number >> 1];
      sum.lines += counts.lines;
      sum.warnings += counts.warnings;
      sum.errors += counts.errors;
    }
    lane.swap(wider);
  }
  first_ >>= 1;
  last_ >>= 1;
}

void Timeline::add(size_t lane, LogStamp time, char level) {
  if (lanes_.size() <= lane) lanes_.resize(lane + 1);
  int64_t number = interval_of(time, width_);
  while (first_ <= last_ && std::max(last_, number) - std::min(first_, number) >= kIntervals) {
    widen();
    number >>= 1;
  }
  first_ = std::min(first_, number);
  last_ = std::max(last_, number);
  IntervalCounts& counts = lanes_[lane][number];
  ++counts.lines;
  if (level == 'W') ++counts.warnings;
  if (level == 'E' || level == 'F') ++counts.errors;
}

size_t RunSurvey::lane_of(const std::string& name) {
  const auto found = std::find(lane_names.begin(), lane_names.end(), name);
  if (found != lane_names.end()) return static_cast<size_t>(found - lane_names.begin());
  lane_names.push_back(name);
  return lane_names.size() - 1;
}

void RunSurvey::add_mark(const char* kind, LogStamp time, LogStamp until, std::string_view text) {
  if (marks.size() < kMarksMax) {
    marks.insert({time, {kind, until, shown(text)}});
  } else {
    marks_left_out++;
  }
}

void RunSurvey::judge_line(const LineStream& stream, const LogLine& line,
                           const ThreadtimeFields& fields) {
  for (const auto& row : kMarkLines) {
    if (row.buffer != stream.name() || (!row.tag.empty() && row.tag != fields.tag)) continue;
    if (!begins_with(fields.message, row.message)) continue;
    const bool crash = row.kind == std::string_view("crash");
    if (crash && crash_left_ > 0) break;  // of the same crash
    add_mark(row.kind, line.time, kNoStamp, std::string(fields.tag) + ": " + shown(fields.message));
    if (!crash || crashes.size() >= kCrashesMax) break;
    crashes.push_back({line.time, {}});
    crash_left_ = kCrashLines;
    break;
  }
  if (stream.name() == "crash" && crash_left_ > 0) {
    --crash_left_;
    crashes.back().lines.push_back(shown(line.text));
  }
  if (!own_lines_ || fields.tag != kOwnTag) return;
  const std::string told = story_of("] " + std::string(fields.message));
  if (const char* kind = kind_of_story(told)) add_mark(kind, line.time, kNoStamp, told);
}

bool RunSurvey::take(const LineStream& stream, const LogLine& line) {
  if (line.kind == LineKind::kEvent) {
    const size_t head = line.text.find("daemon: ");
    const std::string_view told = line.text.substr(head == std::string_view::npos ? 0 : head + 8);
    if (const char* kind = kind_of_story(told)) add_mark(kind, line.time, kNoStamp, told);
    return true;
  }
  if (line.kind != LineKind::kLine) {
    const size_t head = line.text.find(line.kind == LineKind::kHole ? "hole: " : "clock: ");
    const bool hole = line.kind == LineKind::kHole;
    add_mark(hole ? "hole" : "step", line.time, hole ? line.until : kNoStamp,
             line.text.substr(std::min(head, line.text.size())));
    return true;
  }
  if (!line.stamped) return true;
  if (first == kNoStamp || line.time < first) first = line.time;
  last = std::max(last, line.time);
  if (latest_ != &stream) {
    latest_ = &stream;
    latest_lane_ = lane_of(stream.name());
  }
  ThreadtimeFields fields;
  if (stream.name() == kTouchStream || !parse_threadtime(line.text, &fields)) {
    times.add(latest_lane_, line.time, ' ');
    return true;
  }
  times.add(latest_lane_, line.time, fields.level);
  const int error = fields.level == 'E' || fields.level == 'F' ? 1 : 0;
  const std::string tag(fields.tag.substr(0, kTagBytes));
  if (tags.size() < kTagsMax || tags.count(tag) != 0) {
    Talker& by_tag = tags[tag];
    ++by_tag.lines;
    by_tag.errors += error;
  }
  if (pids.size() < kPidsMax || pids.count(fields.pid) != 0) {
    Talker& by_pid = pids[fields.pid];
    ++by_pid.lines;
    by_pid.errors += error;
  }
  judge_line(stream, line, fields);
  return true;
}
