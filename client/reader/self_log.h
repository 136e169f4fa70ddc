// Lines of the daemon's own log: "date time || harrowmossd [pid, tid] source|function|line:: text".
#pragma once

#include <stddef.h>

#include <string>
#include <string_view>

struct SelfLogParts {
  std::string_view function;
  std::string_view message;
};

// False for what is no such line.
bool split_self_log(std::string_view line, SelfLogParts* parts);

// A message that is told to people in other words.
struct ToldMessage {
  std::string_view function;   // that logs it, "" any
  std::string_view beginning;  // of its text
  const char* told;
  bool append_rest;  // the rest of its text belongs to it
};

// What the first of `rows` that fits tells of `line`; "" when none does.
std::string retell(const ToldMessage* rows, size_t count, std::string_view line);
