#include "client/reader/run_files.h"

#include <stdlib.h>

#include <iterator>
#include <map>
#include <tuple>

namespace {

constexpr struct {
  const char* name;
  LineFormat format;
} kStreams[] = {
    {"main", LineFormat::kThreadtime},  {"system", LineFormat::kThreadtime},
    {"radio", LineFormat::kThreadtime}, {"events", LineFormat::kThreadtime},
    {"crash", LineFormat::kThreadtime}, {"kernel", LineFormat::kThreadtime},
    {kTouchStream, LineFormat::kTouch}, {kDaemonStream, LineFormat::kSelfLog},
};

constexpr std::string_view kText = ".txt";

bool ends_with(std::string_view text, std::string_view tail) {
  return text.size() >= tail.size() && text.substr(text.size() - tail.size()) == tail;
}

// Removes "<separator>N" from the end. False, without a change, when the text does not end so.
bool take_suffix(std::string_view* text, char separator, int64_t* number) {
  const size_t at = text->rfind(separator);
  if (at == std::string_view::npos) return false;
  const std::string digits(text->substr(at + 1));
  if (digits.empty() || digits.size() > 9 ||
      digits.find_first_not_of("0123456789") != std::string::npos) {
    return false;
  }
  *number = atoll(digits.c_str());
  text->remove_suffix(text->size() - at);
  return true;
}

// The file's row in kStreams, or -1 for other files; fills its numbers, and `stem` with the part of
// the path that all files of its stream share. A buffer's files are "ID-BUFFER.txt" and, rotated or
// replaced, "ID-BUFFER_2.txt.9".
int recognise(RunFile* file, std::string* stem) {
  std::string_view rest = file->path;
  const size_t slash = rest.rfind('/') + 1;  // npos + 1 is 0
  const std::string_view directory = rest.substr(0, slash);
  const bool numbered = take_suffix(&rest, '.', &file->generation);
  if (!ends_with(rest, kText)) return -1;
  rest.remove_suffix(kText.size());
  if (ends_with(directory, "touch/") && !numbered) take_suffix(&rest, '.', &file->generation);
  const std::string_view whole = rest.substr(slash);
  const bool recorder = ends_with(directory, "touch/") && whole == "event" && !numbered;
  const bool self_log = ends_with(directory, ".logger/") && whole == "harrowmossd";
  take_suffix(&rest, '_', &file->replacement);
  const size_t dash = rest.rfind('-');
  std::string_view name = dash == std::string_view::npos ? "" : rest.substr(dash + 1);
  if (recorder) name = kTouchStream;
  if (self_log) name = kDaemonStream;
  *stem = rest;
  for (size_t row = 0; row < std::size(kStreams); row++) {
    const bool buffer = kStreams[row].format == LineFormat::kThreadtime;
    if (name == kStreams[row].name && (buffer || recorder || self_log))
      return static_cast<int>(row);
  }
  return -1;
}

}  // namespace

const std::vector<std::string>& stream_names() {
  static const std::vector<std::string> names = [] {
    std::vector<std::string> made;
    for (const auto& row : kStreams) made.emplace_back(row.name);
    return made;
  }();
  return names;
}

std::vector<LogStream> order_files(const std::vector<RunFile>& files) {
  using Age = std::tuple<int64_t, int64_t>;  // replacement, generation below 0: ascending
  std::map<std::pair<int, std::string>, std::map<Age, RunFile>> streams;
  for (RunFile file : files) {
    std::string stem;
    file.replacement = file.generation = 0;
    const int row = recognise(&file, &stem);
    if (row != -1) streams[{row, stem}][{file.replacement, -file.generation}] = file;
  }
  std::vector<LogStream> ordered;
  for (const auto& [key, by_age] : streams) {
    LogStream& stream = ordered.emplace_back();
    stream.name = kStreams[key.first].name;
    stream.format = kStreams[key.first].format;
    for (const auto& [numbers, file] : by_age) stream.files.push_back(file);
  }
  return ordered;
}
