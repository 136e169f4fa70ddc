// What the phone's init did, for people and tests: /dev/bench/init.log, one line
// "<milliseconds since boot of the machine> <text>" for each step.
#pragma once

#include <string>

constexpr const char* kInitLog = "/dev/bench/init.log";

void init_log(const std::string& text);

// The same, and on standard error as well: for what the phone's user has to know.
void init_complain(const std::string& text);
