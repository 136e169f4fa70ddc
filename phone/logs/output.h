// A logcat's output: standard output, or a file that it rotates.
#pragma once

#include <stdint.h>

#include <string>
#include <string_view>

#include "phone/util.h"

// How the real logcat treats its file. Tests switch parts of it off.
struct LogFileBehavior {
  bool preallocates = true;  // allocates the whole rotation size at once and keeps it
  bool buffers = true;       // 4 KiB of text, lost when a signal ends it
  bool private_mode = true;  // makes its files 0640, not 0664
};

class LogOutput {
 public:
  // "": standard output. `rotate_kb` 0: never; else, once the file holds that many KiB, FILE
  // becomes FILE.1, FILE.1 becomes FILE.2 ... up to FILE.`generations`; the number has as many
  // digits as `generations` ("FILE.01" with 39). An existing file is appended to, and counts.
  LogOutput(std::string file, int64_t rotate_kb, int generations, LogFileBehavior behavior = {});

  // False with errno when the file cannot be opened. To be called once, before write().
  bool open();
  // Writes whole blocks of 4 KiB to a file and buffers the rest; without buffering, and on standard
  // output, one write(2) per text. False with errno.
  bool write(std::string_view text);
  // Writes the buffered text. False with errno.
  bool flush();
  // Rotates when the file is full. False with errno when the new file cannot be opened.
  bool rotate_if_full();

 private:
  std::string generation(int number) const;
  void preallocate();
  bool write_buffer(size_t size);

  std::string file_;
  int64_t rotate_kb_;
  int generations_;
  LogFileBehavior behavior_;
  int64_t bytes_ = 0;  // written and buffered
  std::string buffer_;
  Fd fd_;
};
