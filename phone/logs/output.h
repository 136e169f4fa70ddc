// Where a logcat writes: standard output, or a file that it rotates itself.
#pragma once

#include <stdint.h>

#include <string>
#include <string_view>

#include "phone/util.h"

// What the real logcat does with its file and a kinder one would not.
struct LogFileHabits {
  bool preallocates = true;  // takes the room of the whole rotation size at once, and keeps it
  bool buffers = true;       // 4 KiB of text, which die with it when a signal ends it
  bool private_mode = true;  // makes its files 0640, not 0664
};

class LogOutput {
 public:
  // "" : standard output. `rotate_kb` 0: never; else, once the file holds that many KiB, FILE
  // becomes FILE.1, FILE.1 becomes FILE.2 ... up to FILE.`generations`; the number has as many
  // digits as `generations` ("FILE.01" with 39). An existing file is appended to, and counts.
  LogOutput(std::string file, int64_t rotate_kb, int generations, LogFileHabits habits = {});

  // False with errno when the file cannot be opened. To be called once, before write().
  bool open();
  // Writes blocks of 4 KiB to a file and holds the rest back, unless it does not buffer; one
  // write(2) for a text otherwise. False with errno.
  bool write(std::string_view text);
  // Writes what is held back. False with errno.
  bool flush();
  // Rotates when the file is full. False with errno when the new file cannot be opened.
  bool rotate_if_full();

 private:
  std::string generation(int number) const;
  void preallocate();
  bool write_held(size_t size);

  std::string file_;
  int64_t rotate_kb_;
  int generations_;
  LogFileHabits habits_;
  int64_t bytes_ = 0;  // written and held
  std::string held_;
  Fd fd_;
};
