// Filter expressions of a logcat: "TAG:PRIORITY" with '*' for all other tags.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

class LogFilter {
 public:
  // One argument; may hold several expressions between blanks or commas. A tag alone means all
  // of its lines ("TAG:V"), "*" alone means "*:D". False for what is neither.
  bool add(std::string_view argument);
  // -s: nothing but what a expression lets through.
  void silence() { others_ = kSilent; }
  bool empty() const { return tags_.empty(); }

  bool shows(std::string_view tag, int priority) const;

 private:
  static constexpr int kVerbose = 2, kDebug = 3, kSilent = 8;
  int others_ = kVerbose;                          // the least priority of tags not named
  std::vector<std::pair<std::string, int>> tags_;  // the last one for a tag wins
};
