#include "client/merge/filter.h"

#include <string.h>

#include <algorithm>

namespace {

// Bytes of a line that regexec() gets: its memory grows with the text.
constexpr size_t kMatched = 16 * 1024;

bool contains(const std::vector<std::string>& list, std::string_view word) {
  return std::find(list.begin(), list.end(), word) != list.end();
}

}  // namespace

std::vector<std::string> split_list(const std::string& list) {
  std::vector<std::string> words;
  for (size_t start = 0; start < list.size();) {
    const size_t comma = std::min(list.find(',', start), list.size());
    if (comma != start) words.push_back(list.substr(start, comma - start));
    start = comma + 1;
  }
  return words;
}

std::string LineFilter::set(const FilterOptions& options) {
  if (!options.level.empty()) {
    level_ = options.level.size() == 1 ? kLevels.find(options.level) : std::string_view::npos;
    if (level_ == std::string_view::npos) {
      return "--level takes one of V, D, I, W, E, F, not \"" + options.level + "\"";
    }
  }
  tags_ = split_list(options.tags);
  for (const std::string& pid : split_list(options.pids)) {
    if (pid.size() > 9 || pid.find_first_not_of("0123456789") != std::string::npos) {
      return "--pid takes numbers with commas, not \"" + options.pids + "\"";
    }
    pids_.push_back(std::stoi(pid));
  }
  by_fields_ = level_ > 0 || !tags_.empty() || !pids_.empty();
  pattern_ = options.pattern;
  if (pattern_.empty() || !options.extended) return "";
  auto compiled = std::make_unique<regex_t>();
  const int status = regcomp(compiled.get(), pattern_.c_str(), REG_EXTENDED | REG_NOSUB);
  if (status != 0) {
    char text[128] = {};
    regerror(status, compiled.get(), text, sizeof text);
    return "--grep: " + std::string(text);
  }
  regex_ = {compiled.release(), [](regex_t* regex) {
              regfree(regex);
              delete regex;
            }};
  return "";
}

bool LineFilter::matches(std::string_view text) const {
  if (regex_ == nullptr) {
    return memmem(text.data(), text.size(), pattern_.data(), pattern_.size()) != nullptr;
  }
  const std::string line(text.substr(0, std::min(text.find_last_not_of("\r\n") + 1, kMatched)));
  return regexec(regex_.get(), line.c_str(), 0, nullptr, 0) == 0;
}

bool LineFilter::judge_fields(std::string_view text) const {
  ThreadtimeFields fields;
  if (!parse_threadtime(text, &fields)) return false;
  if (level_ > 0) {
    const size_t level = kLevels.find(fields.level);
    if (level == std::string_view::npos || level < level_) return false;
  }
  return (tags_.empty() || contains(tags_, fields.tag)) &&
         (pids_.empty() || std::find(pids_.begin(), pids_.end(), fields.pid) != pids_.end());
}

bool LineFilter::passes(const LogLine& line) {
  if (is_open() || line.kind == LineKind::kHole || line.kind == LineKind::kStep) return true;
  if (line.kind == LineKind::kEvent) return false;
  if (line.stamped) {
    fields_pass_ = !by_fields_ || judge_fields(line.text);
    matched_ = fields_pass_ && (pattern_.empty() || matches(line.text));
    return matched_;
  }
  return fields_pass_ && (matched_ || matches(line.text));
}
