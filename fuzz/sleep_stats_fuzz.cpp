// For any statistics file, every parser ends and reads nothing beyond a line.
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <string>

#include "catchers/sleep_stats.h"

namespace {

template <typename Parser>
void parse(const std::string& text) {
  constexpr size_t kLineSize = 512;  // as the file is read
  Parser parser;
  SleepCounters counters;
  for (size_t at = 0; at < text.size();) {
    const size_t newline = text.find('\n', at);
    const size_t end = newline == std::string::npos ? text.size() : newline + 1;
    const size_t length = std::min(end - at, kLineSize - 1);
    // A heap block for each line: the sanitizer detects reads beyond it.
    char* line = strdup(text.substr(at, length).c_str());
    parser.line(line, &counters);
    free(line);
    at += length;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  parse<AosdCxsdParser>(text);
  parse<VminParser>(text);
  parse<MasterParser>(text);
  parse<RpmhParser>(text);
  return 0;
}
