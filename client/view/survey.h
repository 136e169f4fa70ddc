// The data of the page, collected in one pass over the run's lines.
#pragma once

#include <stdint.h>

#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "client/merge/merge.h"
#include "client/runs/run_check.h"

// Lines of one interval.
struct IntervalCounts {
  int32_t lines = 0;
  int32_t warnings = 0;
  int32_t errors = 0;
};

// Counts by interval. The length of an interval doubles whenever there would be more than
// kIntervals.
class Timeline {
 public:
  static constexpr int64_t kIntervals = 4096;

  void add(size_t lane, LogStamp time, char level);

  LogStamp width() const { return width_; }
  int64_t first() const { return first_ <= last_ ? first_ : 0; }  // number of the first interval
  // By number: the interval n begins at n * width().
  const std::vector<std::map<int64_t, IntervalCounts>>& lanes() const { return lanes_; }

 private:
  void widen();

  LogStamp width_ = kSecond / 128;
  int64_t first_ = INT64_MAX;
  int64_t last_ = INT64_MIN;
  std::vector<std::map<int64_t, IntervalCounts>> lanes_;
};

struct RunMark {
  const char* kind;  // "crash", "anr", "tombstone", "reboot", "replaced", "evicted", "hole", ...
  LogStamp until;    // of a hole, else kNoStamp
  std::string text;
};

struct Talker {
  int64_t lines = 0;
  int64_t errors = 0;
};

struct CrashLines {
  LogStamp time;
  std::vector<std::string> lines;
};

// Counts the lines of the merged list, in bounded memory.
class RunSurvey : public LineSink {
 public:
  // With `own_lines` the daemon's marks are taken from its lines in the log buffers: for runs
  // without a self log.
  explicit RunSurvey(bool own_lines) : own_lines_(own_lines) {}
  bool take(const LineStream& stream, const LogLine& line) override;

  // Counts another event, such as a captured packet.
  void add_event(const std::string& lane, LogStamp time) { times.add(lane_of(lane), time, ' '); }
  void add_mark(const char* kind, LogStamp time, LogStamp until, std::string_view text);

  Timeline times;
  std::vector<std::string> lane_names;
  std::multimap<LogStamp, RunMark> marks;  // by time
  int64_t marks_left_out = 0;
  std::unordered_map<std::string, Talker> tags;
  std::unordered_map<int, Talker> pids;
  std::vector<CrashLines> crashes;
  LogStamp first = kNoStamp;
  LogStamp last = kNoStamp;

 private:
  size_t lane_of(const std::string& name);
  void judge_line(const LineStream& stream, const LogLine& line, const ThreadtimeFields& fields);

  bool own_lines_;
  const LineStream* latest_ = nullptr;  // whose lane is latest_lane_
  size_t latest_lane_ = 0;
  int crash_left_ = 0;  // lines of the latest crash still to collect
};
