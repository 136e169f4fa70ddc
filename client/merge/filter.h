// Selects the lines to show.
#pragma once

#include <regex.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "client/merge/line_stream.h"
#include "client/reader/stamp.h"

struct FilterOptions {
  std::string level;  // the lowest, a letter of kLevels; "" any
  std::string tags;   // with commas, "" any
  std::string pids;
  std::string pattern;    // in the whole line, "" any
  bool extended = false;  // it is an extended regular expression
};

constexpr std::string_view kLevels = "VDIWEF";  // logcat's, ascending

std::vector<std::string> split_list(const std::string& list);

class LineFilter {
 public:
  // "" or an error.
  std::string set(const FilterOptions& options);

  // Every line is shown.
  bool is_open() const { return !by_fields_ && pattern_.empty(); }

  // Call for each line of the merged list in order: an unstamped line passes with the line before
  // it, or when it matches the pattern itself.
  bool passes(const LogLine& line);

 private:
  bool matches(std::string_view text) const;
  bool judge_fields(std::string_view text) const;

  bool by_fields_ = false;
  size_t level_ = 0;  // index in kLevels
  std::vector<std::string> tags_;
  std::vector<int> pids_;
  std::string pattern_;
  std::unique_ptr<regex_t, void (*)(regex_t*)> regex_{nullptr, nullptr};
  bool fields_pass_ = false;  // of the last line that had a time
  bool matched_ = false;
};
