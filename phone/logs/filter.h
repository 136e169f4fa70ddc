// Filter expressions of a logcat: "TAG:PRIORITY" with '*' for all other tags.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

class LogFilter {
 public:
  // Adds one argument: expressions between blanks or commas. A tag alone means "TAG:V", "*" alone
  // "*:D". False for anything else.
  bool add(std::string_view argument);
  // -s: hide what no expression shows.
  void silence() { others_ = kSilent; }
  bool empty() const { return tags_.empty(); }

  bool shows(std::string_view tag, int priority) const;

 private:
  static constexpr int kVerbose = 2, kDebug = 3, kSilent = 8;
  int others_ = kVerbose;                          // least priority of other tags
  std::vector<std::pair<std::string, int>> tags_;  // the last row of a tag counts
};
