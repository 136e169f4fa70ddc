// A logcat's command line, as values.
#pragma once

#include <string>
#include <vector>

#include "phone/logs/filter.h"
#include "phone/logs/format.h"

struct LogcatOptions {
  std::vector<std::string> buffers;  // main, system, crash unless -b names others
  LogFormat format;
  LogFilter filter;
  std::string file;  // -f; "": standard output
  long rotate_kb = 0;
  long generations = 4;  // logcat's default
  bool dump = false;     // -d, -t: do not follow
  long tail = 0;         // -t, -T: only the last so many entries; 0: all
  bool clear = false;
  bool prune_list = false, sizes = false, statistics = false;
  bool dividers = false;  // -D: print each change of buffer
};

// False with one line in `error`. `arguments` without argv[0].
bool parse_logcat_options(const std::vector<std::string>& arguments, LogcatOptions* options,
                          std::string* error);
