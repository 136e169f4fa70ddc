// Shows what the daemon is doing while it works on a long request: steps that its diary, the self
// log, tells, and a sign of life where the diary may not be read.
#pragma once

#include <stdio.h>

#include <chrono>
#include <string>
#include <string_view>

// The step that one line of the self log stands for; "" for the many lines that are no step.
std::string progress_step(std::string_view line);

class progress_lines {
 public:
  // Follows `self_log` from its present end and prints to `out`.
  progress_lines(std::string self_log, FILE* out);
  ~progress_lines();
  progress_lines(const progress_lines&) = delete;
  progress_lines& operator=(const progress_lines&) = delete;

  // Prints the steps since the last call. To be called several times a second.
  void look();

 private:
  bool open_log();
  void read_log();
  void say(const std::string& text);

  const std::string path_;
  FILE* const out_;
  const std::chrono::steady_clock::time_point start_;
  std::chrono::steady_clock::time_point last_said_;
  int fd_ = -1;
  std::string partial_;  // an unfinished line
  std::string last_;     // the last step, not repeated
};
