// Where a run is stored, and reading its files.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "base/scoped.h"
#include "client/reader/run_files.h"
#include "client/support/environment.h"

struct RunSource {
  std::string name;                 // of the run, of another directory, or of the archive
  std::vector<std::string> places;  // its directories; none for an archive
  std::string self_log;             // directory of the self log, "" when there is none
  std::string archive;              // as the caller named it; "" for directories
  std::string tar;                  // the tool that reads it
  bool cut = false;                 // the archive ends early
  bool capturing = false;
  std::vector<RunFile> files;
  int64_t written = 0;        // of the file that was written last
  LogStamp start = kNoStamp;  // as the run's name has it
};

// Resolves `word`: a run on the phone by number or name, a directory, or an archive made by `pack`.
// The self log is searched on the phone, or in and beside a copied run. Returns "" or an error.
std::string find_source(const Environment& env, const std::string& word, RunSource* source);

// Lists the files of a run on the phone again, in the working area or the store. False when it has
// left the working area: no process writes to it any more.
bool refresh_source(const Environment& env, RunSource* source);

// A file being read.
class OpenFile {
 public:
  OpenFile() = default;
  ~OpenFile() { close(); }
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;

  // Opens `file`, or starts the tar that writes it. That tar goes on with the files after it, up to
  // `end` (null: none), while they come in this order in the archive too; open() of the next file
  // then continues the stream, so read exactly file.bytes before. False on failure.
  bool open(const RunSource& source, const RunFile& file, const RunFile* end = nullptr);
  // Also kills a tar that has not ended.
  void close();

  int fd() const { return fd_.get(); }
  bool is_file() const { return fd_.valid() && tool_ == -1; }  // not a pipe

 private:
  ScopedFd fd_;
  pid_t tool_ = -1;
  size_t coming_ = 0;  // files that the running tar gives after this one
};
