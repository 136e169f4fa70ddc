// Lines of the self log: "date time || harrowmossd [pid, tid] source|function|line:: text".
#pragma once

#include <stddef.h>

#include <string>
#include <string_view>

struct SelfLogParts {
  std::string_view function;
  std::string_view message;
};

// False for any other line.
bool split_self_log(std::string_view line, SelfLogParts* parts);

// A message of the daemon and its text for people.
struct ToldMessage {
  std::string_view function;   // that logs it; "": any
  std::string_view beginning;  // of its text
  const char* told;
  bool append_rest;  // append the rest of the message
};

// The text of the first row that matches `line`; "" for none.
std::string retell(const ToldMessage* rows, size_t count, std::string_view line);
