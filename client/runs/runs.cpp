#include "client/runs/runs.h"

#include <stdlib.h>

#include <algorithm>
#include <initializer_list>
#include <map>
#include <string_view>

#include "client/support/files.h"
#include "client/support/settings.h"
#include "client/support/volume.h"
#include "model/log_buffers.h"
#include "model/masks.h"
#include "model/properties.h"
#include "model/run_name.h"

namespace {

constexpr size_t kHeadLimit = 64;             // enough for logcat's opening line
constexpr size_t kPropertiesLimit = 1 << 18;  // a phone's property list is about 60 KiB
constexpr std::initializer_list<const char*> kBuildKeys = {kVendorDisplayIdProp, kDisplayIdProp};
constexpr std::string_view kDigits = "0123456789";

// Directories of logger types that do not have the type's name.
constexpr struct {
  const char* directory;
  const char* type;
} kTypeDirectories[] = {{"fg", "power"}, {"wlan_logs", "wifi"}, {"mpss_dump", "MPSSDump"}};

bool is_number(std::string_view text) {
  return !text.empty() && text.size() <= 18 &&
         text.find_first_not_of(kDigits) == std::string_view::npos;
}

int32_t type_of_directory(std::string_view directory) {
  for (const auto& row : kTypeDirectories) {
    if (directory == row.directory) directory = row.type;
  }
  for (const NamedBit& type : kLoggerTypeNames) {
    if (directory == type.name) return type.mask;
  }
  return 0;
}

// "ID-radio_3.txt" and its rotated generations belong to the third replacement of the radio logcat.
bool is_replacement(std::string_view file) {
  if (file.size() < 4 || file.substr(file.size() - 4) != ".txt") return false;
  file.remove_suffix(4);
  const size_t underscore = file.rfind('_');
  if (underscore == std::string_view::npos || !is_number(file.substr(underscore + 1))) return false;
  const std::string_view stem = file.substr(0, underscore);
  return std::any_of(std::begin(kLogBuffers), std::end(kLogBuffers), [&](const char* buffer) {
    const std::string tail = std::string("-") + buffer;
    return stem.size() > tail.size() && stem.substr(stem.size() - tail.size()) == tail;
  });
}

// The display id in front of "-main.txt".
std::string build_of_file(std::string_view file) {
  constexpr std::string_view kTail = "-main.txt";
  if (file.size() <= kTail.size() || file.substr(file.size() - kTail.size()) != kTail) return "";
  return std::string(file.substr(0, file.size() - kTail.size()));
}

// The value of the first of `keys` that a property list of the run has.
std::string property_of_lists(const std::string& directory,
                              std::initializer_list<const char*> keys) {
  for (const char* list : {"/system.prop", "/system_stop.prop"}) {
    const std::string text = read_start(directory + list, kPropertiesLimit);
    for (const char* key : keys) {
      const std::string value = listed_property(text, key);
      if (!value.empty()) return value;
    }
  }
  return "";
}

using Generations = std::map<int64_t, std::string>;  // files by number

// Whether generations are lost: an oldest one that does not begin with logcat's opening line had
// predecessors, and a number may be missing in between.
LostLines judge_loss(const Generations& kept) {
  const auto& [highest, oldest] = *kept.rbegin();
  const int64_t first = std::min<int64_t>(kept.begin()->first, 1);  // some tools count from 0
  if (static_cast<int64_t>(kept.size()) != highest - first + 1) return LostLines::kYes;
  const std::string head = read_start(oldest, kHeadLimit);
  if (head.compare(0, kLogcatOpening.size(), kLogcatOpening) == 0) return LostLines::kNo;
  const bool logcat = oldest.find("/mobile/") != std::string::npos && !head.empty();
  return logcat ? LostLines::kYes : LostLines::kUnknown;
}

}  // namespace

std::string listed_property(const std::string& list, const char* key) {
  const std::string head = std::string("[") + key + "]: [";
  for (size_t at = list.find(head); at != std::string::npos; at = list.find(head, at + 1)) {
    if (at != 0 && list[at - 1] != '\n') continue;
    const size_t start = at + head.size();
    const size_t end = list.find("]\n", start);
    if (end != std::string::npos) return list.substr(start, end - start);
  }
  return "";
}

void add_content(const std::string& directory, RunReport* run) {
  std::map<std::string, Generations> rotated;
  const std::string types = property_of_lists(directory, {kTypeProp});
  if (!run->types_known && !types.empty()) {
    run->types = atoi(types.c_str());
    run->types_known = true;
  }
  for (const std::string& name : list_directory(directory)) {
    if (!run->types_known && is_directory(directory + "/" + name)) {
      run->types |= type_of_directory(name);
    }
  }
  if (run->build.empty()) run->build = property_of_lists(directory, kBuildKeys);
  std::string build;
  run->bytes += quota_bytes(directory);
  walk_files(directory, [&](const std::string& path, int64_t) {
    const size_t dot = path.rfind('.');
    const std::string suffix = dot == std::string::npos ? "" : path.substr(dot + 1);
    if (is_number(suffix)) {
      rotated[path.substr(0, dot)][atoll(suffix.c_str())] = directory + "/" + path;
    }
    const std::string file = path.substr(path.find_last_of('/') + 1);
    if (is_replacement(file)) run->replaced.push_back(path);
    if (build.empty()) build = build_of_file(file);
  });
  if (run->build.empty()) run->build = build;
  for (const auto& [path, kept] : rotated) {
    run->rotated.push_back({path, static_cast<int>(kept.size()),
                            static_cast<int>(kept.rbegin()->first), judge_loss(kept)});
  }
  std::sort(run->replaced.begin(), run->replaced.end());
}

bool parse_run_name(const std::string& name, RunReport* run) {
  const int32_t number = run_number(name);
  if (number == -1) return false;
  run->name = name;
  run->sequence = number == 0 ? -1 : number;
  run->date = name.substr(name.find('#') + 1);  // npos + 1 is 0
  run->date[5] = ' ';
  run->date[8] = run->date[11] = ':';
  return true;
}

std::vector<RunReport> read_runs(const Environment& env) {
  const LoggingSettings settings = read_settings(env);
  std::map<std::pair<int64_t, std::string>, RunReport> found;  // by sequence, then by name
  const auto note = [&](const std::string& root, std::string RunReport::*place) {
    for (const std::string& name : list_directory(root)) {
      RunReport run;
      const std::string path = root + "/" + name;
      if (!parse_run_name(name, &run) || !is_directory(path) || is_link(path)) continue;
      found.emplace(std::pair(run.sequence, name), run).first->second.*place = path;
    }
  };
  note(env.store, &RunReport::store);
  note(env.working, &RunReport::working);

  std::vector<RunReport> runs;
  for (auto& [key, run] : found) {
    const bool current = settings.logging && run.name == settings.run_name && !run.working.empty();
    if (current) run.state = RunState::kCapturing;
    if (!current && !run.working.empty()) run.state = RunState::kLeftBehind;
    run.types_known = current;
    if (current) run.types = settings.types;
    for (const std::string& place : directories_of(run)) add_content(place, &run);
    runs.push_back(run);
  }
  return runs;
}

bool find_run(const std::vector<RunReport>& runs, const std::string& word, RunReport* found,
              std::string* error) {
  int matches = 0;
  for (const RunReport& run : runs) {
    const bool number = is_number(word) && run.sequence == atoll(word.c_str());
    if (run.name != word && !number) continue;
    *found = run;
    matches++;
  }
  if (matches == 0) *error = "there is no run \"" + word + "\"; see harrowmossctl runs";
  if (matches > 1) *error = "several runs have the number " + word + "; give the whole name";
  return matches == 1;
}

std::vector<std::string> directories_of(const RunReport& run) {
  std::vector<std::string> places;
  for (const std::string& place : {run.working, run.store}) {
    if (!place.empty()) places.push_back(place);
  }
  return places;
}
