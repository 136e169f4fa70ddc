// Whatever a statistics file holds, its parser (PARSER) reads nothing behind a line and ends.
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <string>

#include "catchers/sleep_stats.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  constexpr size_t kLineSize = 512;  // as the file is read
  std::string text(reinterpret_cast<const char*>(data), size);
  PARSER parser;
  sleep_counters counters;
  for (size_t at = 0; at < text.size();) {
    const size_t newline = text.find('\n', at);
    const size_t end = newline == std::string::npos ? text.size() : newline + 1;
    const size_t length = std::min(end - at, kLineSize - 1);
    // A block of its own for each line: the sanitizer sees a read behind it.
    const std::string piece = text.substr(at, length).c_str();
    char* line = strdup(piece.c_str());
    parser.line(line, &counters);
    free(line);
    at += length;
  }
  return 0;
}
