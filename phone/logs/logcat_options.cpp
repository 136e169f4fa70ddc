#include "phone/logs/logcat_options.h"

#include <limits.h>

#include <algorithm>

#include "phone/util.h"

namespace {

constexpr const char* kNames[] = {"main",  "radio",  "events", "system",
                                  "crash", "kernel", "stats",  "security"};

bool add_buffers(const std::string& argument, std::vector<std::string>* buffers) {
  for (const std::string& name : split(argument, ",")) {
    std::vector<std::string> added = {name};
    if (name == "default") added = {"main", "system", "crash"};
    if (name == "all") added = {"main", "radio", "events", "system", "crash", "kernel"};
    for (const std::string& buffer : added) {
      if (std::find(std::begin(kNames), std::end(kNames), buffer) == std::end(kNames)) return false;
      if (std::find(buffers->begin(), buffers->end(), buffer) == buffers->end())
        buffers->push_back(buffer);
    }
  }
  return true;
}

// Parses like getopt: letters may be joined ("-dv", "time"), a value may follow its letter
// ("-bmain"), filter expressions may be anywhere.
class Reader {
 public:
  Reader(const std::vector<std::string>& arguments, LogcatOptions* options, std::string* error)
      : arguments_(arguments), options_(options), error_(error) {}

  bool run() {
    for (; at_ < arguments_.size(); at_++) {
      const std::string& word = arguments_[at_];
      if (word == "--") {
        for (at_++; at_ < arguments_.size(); at_++) {
          if (!add_filter(arguments_[at_])) return false;
        }
      } else if (word.size() > 1 && word[0] == '-') {
        if (!read_letters(word)) return false;
      } else if (!add_filter(word)) {
        return false;
      }
    }
    if (options_->buffers.empty()) add_buffers("default", &options_->buffers);
    if (options_->rotate_kb != 0 && options_->file.empty()) return fail("-r requires -f as well");
    return true;
  }

 private:
  bool fail(const std::string& what) {
    *error_ = what;
    return false;
  }

  bool add_filter(const std::string& text) {
    return options_->filter.add(text) || fail("Invalid filter expression '" + text + "'");
  }

  bool read_letters(const std::string& word) {
    for (size_t i = 1; i < word.size(); i++) {
      const char letter = word[i];
      if (std::string("vbfrntT").find(letter) == std::string::npos) {
        if (!set_flag(letter)) return fail(std::string("unrecognized option -- ") + letter);
        continue;
      }
      std::string value = word.substr(i + 1);
      if (value.empty()) {
        if (++at_ == arguments_.size())
          return fail(std::string("option requires an argument -- ") + letter);
        value = arguments_[at_];
      }
      return set_value(letter, value);
    }
    return true;
  }

  bool set_flag(char letter) {
    switch (letter) {
      case 'd':
        options_->dump = true;
        return true;
      case 'c':
        options_->clear = true;
        return true;
      case 's':
        options_->filter.silence();
        return true;
      case 'g':
        options_->sizes = true;
        return true;
      case 'p':
        options_->prune_list = true;
        return true;
      case 'S':
        options_->statistics = true;
        return true;
      case 'D':
        options_->dividers = true;
        return true;
      default:
        return false;
    }
  }

  bool set_value(char letter, const std::string& value) {
    switch (letter) {
      case 'v':
        return set_log_format(value, &options_->format) ||
               fail("Invalid parameter '" + value + "' to -v");
      case 'b':
        return add_buffers(value, &options_->buffers) || fail("unknown buffer " + value);
      case 'f':
        options_->file = value;
        return true;
      case 'r':
        return number(letter, value, &options_->rotate_kb);
      case 'n':
        return number(letter, value, &options_->generations);
      case 't':
        options_->dump = true;
        [[fallthrough]];
      default:
        return number(letter, value, &options_->tail);
    }
  }

  bool number(char letter, const std::string& value, long* result) {
    return parse_number(value, 1, INT_MAX, result) ||
           fail("Invalid parameter '" + value + "' to -" + letter);
  }

  const std::vector<std::string>& arguments_;
  LogcatOptions* options_;
  std::string* error_;
  size_t at_ = 0;
};

}  // namespace

bool parse_logcat_options(const std::vector<std::string>& arguments, LogcatOptions* options,
                          std::string* error) {
  return Reader(arguments, options, error).run();
}
