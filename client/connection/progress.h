// Progress of a long request: the daemon's steps, from its self log, and a line every 10 s when
// there is none.
#pragma once

#include <stdio.h>

#include <chrono>
#include <string>
#include <string_view>

// The step that a line of the self log stands for; "" for most lines.
std::string progress_step(std::string_view line);

class ProgressLines {
 public:
  // Follows `self_log` from its current end and prints to `out`.
  ProgressLines(std::string self_log, FILE* out);
  ~ProgressLines();
  ProgressLines(const ProgressLines&) = delete;
  ProgressLines& operator=(const ProgressLines&) = delete;

  // Prints the steps since the last call. To be called several times a second.
  void look();

 private:
  bool open_log();
  void read_log();
  void print(const std::string& text);

  const std::string path_;
  FILE* const out_;
  const std::chrono::steady_clock::time_point start_;
  std::chrono::steady_clock::time_point last_line_;
  int fd_ = -1;
  std::string partial_;  // an unfinished line
  std::string last_;     // the last step, not repeated
};
