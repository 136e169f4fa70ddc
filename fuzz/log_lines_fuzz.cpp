// For any files of a run, the list has every byte of them: each file's lines in order, and lines
// without a time after the preceding line. A range of time shows only lines of the list.
#include <fcntl.h>
#include <stdint.h>
#include <unistd.h>

#include <array>
#include <string>

#include "client/merge/filter.h"
#include "client/merge/log_command.h"
#include "client/reader/line_reader.h"
#include "fuzz/require.h"

namespace {

constexpr int64_t kWritten = 1795000000;  // 2026-11-18
constexpr const char* kNames[] = {"mobile/Q-main.txt.1", "mobile/Q-main.txt", "mobile/Q-radio.txt",
                                  "touch/event.txt"};
constexpr size_t kFiles = std::size(kNames);

// Splits the list again.
class Collector : public LineSink {
 public:
  bool take(const LineStream& stream, const LogLine& line) override {
    require(line.text.size() <= LineReader::kPart);
    if (line.kind == LineKind::kLine) {
      (stream.name() == "main" ? main : stream.name() == "radio" ? radio : touch) += line.text;
      filter.passes(line);
    }
    lines++;
    return true;
  }
  LineFilter filter;
  std::string main, radio, touch;
  int64_t lines = 0;
};

Collector list(const RunSource& source, const TimeRange& range) {
  Collector all;
  require(all.filter.set({"I", "T,U", "1,2", "a[b-d]*|x", true}).empty());
  StreamList streams = open_streams(source, {{"all"}, range, false});
  merge(&streams, &all, nullptr);
  return all;
}

}  // namespace

// Input: a byte with the range's seconds, then the files, separated by a byte 0xfe.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  std::array<std::string, kFiles> contents;
  size_t file = 0;
  for (size_t i = 1; i < size; i++) {
    if (data[i] == 0xfe && file + 1 < kFiles) {
      file++;
    } else {
      contents[file] += static_cast<char>(data[i]);
    }
  }
  RunSource source;
  std::array<int, kFiles> fds;
  for (size_t i = 0; i < kFiles; i++) {
    char path[64];
    snprintf(path, sizeof path, "/data/local/tmp/log_lines_%zu", i);
    fds[i] = open(path, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    const ssize_t bytes = static_cast<ssize_t>(contents[i].size());
    require(write(fds[i], contents[i].data(), contents[i].size()) == bytes);
    close(fds[i]);
    source.files.push_back({kNames[i], path, bytes, kWritten});
  }
  const Collector whole = list(source, {});
  require(whole.main == contents[0] + contents[1]);
  require(whole.radio == contents[2] && whole.touch == contents[3]);
  const LogStamp since = kWritten * kSecond - data[0] * kSecond;
  const Collector part = list(source, {since, since + data[0] * kSecond});
  require(part.lines <= whole.lines);
  return 0;
}
