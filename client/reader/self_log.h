// Lines of the daemon's own log: "date time || harrowmossd [pid, tid] source|function|line:: text".
#pragma once

#include <string_view>

struct self_log_parts {
  std::string_view function;
  std::string_view message;
};

// False for what is no such line.
bool split_self_log(std::string_view line, self_log_parts* parts);
