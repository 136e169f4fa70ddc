// The log of the phone's init, /dev/bench/init.log: a line "<milliseconds since the machine's boot>
// <text>" for each step.
#pragma once

#include <string>

constexpr const char* kInitLog = "/dev/bench/init.log";

void init_log(const std::string& text);

// Logs and prints to standard error.
void init_complain(const std::string& text);
