// Where a logcat writes: standard output, or a file that it rotates itself.
#pragma once

#include <stdint.h>

#include <string>
#include <string_view>

#include "phone/util.h"

class LogOutput {
 public:
  // "" : standard output. `rotate_kb` 0: never; else, once the file holds that many KiB, FILE
  // becomes FILE.1, FILE.1 becomes FILE.2 ... up to FILE.`generations`; the number has as many
  // digits as `generations` ("FILE.01" with 39). An existing file is appended to, and counts.
  LogOutput(std::string file, int64_t rotate_kb, int generations);

  // False with errno when the file cannot be opened. To be called once, before write().
  bool open();
  // One write(2) for the whole text. False with errno.
  bool write(std::string_view text);
  // Rotates when the file is full. False with errno when the new file cannot be opened.
  bool rotate_if_full();

 private:
  std::string generation(int number) const;

  std::string file_;
  int64_t rotate_kb_;
  int generations_;
  int64_t bytes_ = 0;
  Fd fd_;
};
