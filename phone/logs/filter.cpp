#include "phone/logs/filter.h"

#include "phone/logs/entry.h"
#include "phone/util.h"

bool LogFilter::add(std::string_view argument) {
  for (const std::string& expression : split(argument, " \t,")) {
    const size_t colon = expression.find(':');
    const std::string tag = expression.substr(0, colon);
    if (tag.empty()) return false;
    int priority = tag == "*" ? kDebug : kVerbose;
    if (colon != std::string::npos && colon + 1 < expression.size()) {
      // "TAG:*" is "TAG:V", as "*:*" is everything.
      const char letter = expression[colon + 1];
      priority = letter == '*' ? kVerbose : priority_of_letter(letter);
      if (priority == 0 || colon + 2 != expression.size()) return false;
    }
    if (tag == "*") {
      others_ = priority;
    } else {
      tags_.emplace_back(tag, priority);
    }
  }
  return true;
}

bool LogFilter::shows(std::string_view tag, int priority) const {
  for (auto rule = tags_.rbegin(); rule != tags_.rend(); ++rule) {
    if (rule->first == tag) return priority >= rule->second;
  }
  return priority >= others_;
}
