#include "client/reader/run_source.h"

#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <set>
#include <string_view>

#include "client/runs/runs.h"
#include "client/support/child.h"
#include "client/support/files.h"
#include "client/support/settings.h"

namespace {

constexpr const char* kTars[] = {"/system/bin/tar", "/usr/bin/tar", "/bin/tar"};
constexpr std::chrono::minutes kListLimit{30};  // for the list of an archive of many gigabytes
constexpr const char* kSelfLogDirectory = ".logger";

// Removes the next word, and the blanks before it, from the line.
std::string_view take_word(std::string_view* line) {
  line->remove_prefix(std::min(line->find_first_not_of(' '), line->size()));
  const std::string_view word = line->substr(0, line->find(' '));
  line->remove_prefix(word.size());
  return word;
}

// A line of `tar -t -v`: "-rw-rw---- 0/0   103 2026-11-22 06:17[:49] NAME", here and on phones.
bool parse_listed(std::string_view line, RunFile* file) {
  if (line.empty() || line[0] != '-') return false;
  take_word(&line);
  take_word(&line);
  file->bytes = atoll(std::string(take_word(&line)).c_str());
  const std::string date(take_word(&line));
  const std::string clock(take_word(&line));
  CivilStamp time = {};
  if (sscanf(date.c_str(), "%4d-%2d-%2d", &time.year, &time.month, &time.day) != 3) return false;
  sscanf(clock.c_str(), "%2d:%2d", &time.hour, &time.minute);
  if (line.size() < 2) return false;
  file->written = stamp_of(time) / kSecond;
  file->place = line.substr(1);
  return true;
}

std::string list_archive(RunSource* source) {
  std::string rest;
  const auto take = [&](std::string_view bytes) {
    rest += bytes;
    for (size_t end; (end = rest.find('\n')) != std::string::npos; rest.erase(0, end + 1)) {
      RunFile file;
      if (!parse_listed(std::string_view(rest).substr(0, end), &file)) continue;
      file.position = source->files.size();
      source->files.push_back(file);
    }
  };
  ChildSetup tar = {{source->tar, "-t", "-v", "-z", "-f", source->archive}};
  tar.quiet = true;
  // A truncated archive is read as far as it goes.
  source->cut = read_child(tar, std::chrono::milliseconds(kListLimit), take) != 0;
  return source->cut && source->files.empty() ? source->archive + " is no archive that tar can read"
                                              : "";
}

void list_places(RunSource* source) {
  std::vector<std::string> places = source->places;
  for (const std::string& place : places) {
    walk_files(place, [&](const std::string& path, int64_t bytes) {
      struct stat info = {};
      const std::string whole = place + "/" + path;
      if (lstat(whole.c_str(), &info) != 0) return;
      source->files.push_back({path, whole, bytes, static_cast<int64_t>(info.st_mtime)});
    });
  }
  if (source->self_log.empty()) return;
  for (const std::string& name : list_directory(source->self_log)) {
    const std::string whole = source->self_log + "/" + name;
    struct stat info = {};
    if (lstat(whole.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) continue;
    source->files.push_back({std::string(kSelfLogDirectory) + "/" + name, whole, info.st_size,
                             static_cast<int64_t>(info.st_mtime)});
  }
}

// Makes the paths relative to the run. Returns the names of the runs found in them.
std::set<std::string> strip_paths(std::vector<RunFile>* files) {
  std::set<std::string> names;
  for (RunFile& file : *files) {
    if (file.path.empty()) file.path = file.place;
    size_t start = 0;
    for (size_t slash; (slash = file.path.find('/', start)) != std::string::npos;) {
      RunReport run;
      if (parse_run_name(file.path.substr(start, slash - start), &run)) {
        names.insert(run.name);
        file.path.erase(0, slash + 1);
        slash = std::string::npos;
      }
      start = slash + 1;  // npos + 1 is 0
    }
  }
  return names;
}

std::string last_component(const std::string& path) {
  return path.substr(path.find_last_of('/') + 1);
}

// Fills name, times and start from the files. "" or an error.
std::string describe(RunSource* source) {
  const std::set<std::string> inside = strip_paths(&source->files);
  if (inside.size() > 1) return "several runs lie in " + source->name + "; name one of them";
  if (!inside.empty()) source->name = *inside.begin();
  source->written = 0;
  for (const RunFile& file : source->files) {
    if (file.path.compare(0, strlen(kSelfLogDirectory), kSelfLogDirectory) == 0) continue;
    source->written = std::max(source->written, file.written);
  }
  RunReport run;
  if (parse_run_name(source->name, &run)) {
    StampParser parser(LineFormat::kThreadtime, source->written);
    source->start = parser.parse(run.date + ".000 ");
  }
  return "";
}

// A directory given by its path: a copied run or a bundle.
void use_directory(const std::string& word, RunSource* source) {
  const std::string path = resolved(word);
  source->name = last_component(path);
  source->places = {path};
  for (const std::string& parent : {path, path.substr(0, path.find_last_of('/'))}) {
    const std::string candidate = parent + "/" + kSelfLogDirectory;
    if (parent != path && is_directory(candidate)) source->self_log = candidate;
    if (parent == path && is_directory(candidate)) return;  // it is among the run's files
  }
}

std::string use_archive(const Environment& env, const std::string& word, RunSource* source) {
  source->archive = word[0] == '-' ? "./" + word : word;
  source->name = last_component(word);
  for (const char* tar : kTars) {
    const std::string path = env.root + tar;
    if (source->tar.empty() && access(path.c_str(), X_OK) == 0) source->tar = path;
  }
  if (source->tar.empty()) return "there is no tar to read " + word + " with";
  return list_archive(source);
}

void use_run(const Environment& env, const RunReport& run, RunSource* source) {
  source->name = run.name;
  source->places = directories_of(run);
  source->self_log = env.self_log.substr(0, env.self_log.find_last_of('/'));
  source->capturing = run.state == RunState::kCapturing;
}

}  // namespace

std::string find_source(const Environment& env, const std::string& word, RunSource* source) {
  RunReport run;
  std::string error;
  struct stat info = {};
  const bool there = stat(word.c_str(), &info) == 0;
  const bool path = word.find('/') != std::string::npos;
  if (!path && find_run(read_runs(env), word, &run, &error)) {
    use_run(env, run, source);
  } else if (there && S_ISDIR(info.st_mode)) {
    use_directory(word, source);
  } else if (there && S_ISREG(info.st_mode)) {
    error = use_archive(env, word, source);
    return error.empty() ? describe(source) : error;
  } else {
    return path ? "there is no directory or archive " + word : error;
  }
  list_places(source);
  return describe(source);
}

bool refresh_source(const Environment& env, RunSource* source) {
  const LoggingSettings settings = read_settings(env);
  source->capturing = settings.logging && settings.run_name == source->name;
  RunReport run;
  std::string error;
  const bool moved = !is_directory(env.working + "/" + source->name);
  if (moved && find_run(read_runs(env), source->name, &run, &error)) use_run(env, run, source);
  source->files.clear();
  list_places(source);
  describe(source);
  return !moved;
}

bool OpenFile::open(const RunSource& source, const RunFile& file, const RunFile* end) {
  if (coming_ > 0) {
    coming_--;
    return true;
  }
  close();
  if (source.archive.empty()) {
    // Non-blocking: opening a FIFO of that name would wait for a writer.
    fd_.reset(::open(file.place.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    struct stat info = {};
    if (fd_.valid() && (fstat(fd_.get(), &info) != 0 || !S_ISREG(info.st_mode))) fd_.reset();
    return fd_.valid();
  }
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return false;
  fd_.reset(ends[0]);
  const ScopedFd writer(ends[1]);
  ChildSetup tar = {{source.tar, "-x", "-O", "-z", "-f", source.archive, "--", file.place}};
  for (const RunFile* last = &file; end != nullptr && last + 1 != end; last++) {
    if (last[1].position < last->position) break;
    tar.argv.push_back(last[1].place);
    coming_++;
  }
  tar.out = writer.get();
  tar.quiet = true;
  tool_ = start_child(tar);
  if (tool_ == -1) close();
  return tool_ != -1;
}

void OpenFile::close() {
  fd_.reset();
  coming_ = 0;
  if (tool_ == -1) return;
  kill(tool_, SIGKILL);  // its own gzip ends by the closed pipe
  wait_child(tool_);
  tool_ = -1;
}
