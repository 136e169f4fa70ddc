// One log entry, between a buffer and a logcat's output.
#pragma once

#include <stdint.h>
#include <sys/types.h>

#include <string>

struct LogEntry {
  std::string buffer;
  int64_t time_ns = 0;  // since the epoch
  pid_t pid = 0;
  pid_t tid = 0;
  unsigned uid = 0;
  int priority = 4;  // android_LogPriority: 2 verbose .. 7 fatal, 8 silent
  std::string tag;
  std::string message;
};

constexpr char kPriorityLetters[] = "??VDIWEFS";  // by priority; 0 and 1 are unused

// The priority 2..8 of a letter in either case; 0 for any other.
constexpr int priority_of_letter(char letter) {
  const char upper = letter >= 'a' && letter <= 'z' ? static_cast<char>(letter - 32) : letter;
  for (int priority = 2; priority <= 8; priority++) {
    if (kPriorityLetters[priority] == upper) return priority;
  }
  return 0;
}
