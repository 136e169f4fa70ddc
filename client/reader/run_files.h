// The log files of a run, in the order in which they were written.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "client/reader/stamp.h"

struct RunFile {
  std::string path;   // below the run: "mobile/ID-main.txt.1"
  std::string place;  // its absolute path, or its name in the archive
  int64_t bytes = 0;
  int64_t written = 0;      // last modification, seconds since 1970
  int64_t replacement = 0;  // number of the logcat that replaced its predecessor; 0: the first one
  int64_t generation = 0;   // 0: the youngest of its logcat
  size_t position = 0;      // among the archive's files
};

// Files that are read as one stream: of a log buffer, of the touch recorder, or the self log.
struct LogStream {
  std::string name;  // of the buffer, "touch" or "daemon"
  LineFormat format = LineFormat::kThreadtime;
  std::vector<RunFile> files;  // oldest first
};

constexpr const char* kDaemonStream = "daemon";
constexpr const char* kTouchStream = "touch";

// Possible names of a stream, in the order in which lines of the same time are shown.
const std::vector<std::string>& stream_names();

// The streams of `files`, in the order of stream_names(); other files are left out. Two streams
// have the same name when a buffer's files are in two directories or of two builds.
std::vector<LogStream> order_files(const std::vector<RunFile>& files);
