// The runs on the phone, and the holes in their logs.
#pragma once

#include <stdint.h>

#include <string>
#include <string_view>
#include <vector>

#include "client/commands.h"
#include "client/support/environment.h"

enum class RunState {
  kComplete,    // wholly in the store
  kCapturing,   // the run that is being written now
  kLeftBehind,  // still in the working area, wholly or in part, though nothing writes it
};

enum class LostLines { kNo, kYes, kUnknown };

// A file whose older content was moved to numbered generations (".1" is the youngest).
struct RotatedFile {
  std::string path;                      // below the run
  int generations = 0;                   // kept beside the live file
  int highest = 0;                       // largest number among them
  LostLines lost = LostLines::kUnknown;  // generations before the oldest kept one are gone
};

struct RunReport {
  std::string name;
  int64_t sequence = -1;  // -1: a name without one
  std::string date;       // "MM-DD hh:mm:ss"; the name has no year
  RunState state = RunState::kComplete;
  std::string store;  // its directories; "" when it has none there
  std::string working;
  int32_t types = 0;         // of the settings, of its property list, or as its content shows
  bool types_known = false;  // false: content only; types that leave nothing may be missing
  std::string build;         // the display id, "" when unknown
  int64_t bytes = 0;         // as the quota counts them
  std::vector<std::string>
      replaced;  // "mobile/ID-radio_1.txt": a logcat died, lines just before it may be lost
  std::vector<RotatedFile> rotated;
};

// The line that a logcat begins its first file with; the buffer's name follows.
inline constexpr std::string_view kLogcatOpening = "--------- beginning of ";

// Fills name, sequence and date; false for what is no name of a run (model/run_name.h).
bool parse_run_name(const std::string& name, RunReport* run);

// The value of `key` in a list of "[key]: [value]" lines, "" when it has none.
std::string listed_property(const std::string& list, const char* key);

// Adds types, build, bytes and holes of `directory` (a run's, or a bundle's).
void add_content(const std::string& directory, RunReport* run);

// All runs in both places, by sequence.
std::vector<RunReport> read_runs(const Environment& env);

// The run that `word` names: its name or its number. False and one line in `error` when there is
// none, or more than one of that number.
bool find_run(const std::vector<RunReport>& runs, const std::string& word, RunReport* found,
              std::string* error);

// Its directories: one, or two for a run that was moved in part.
std::vector<std::string> directories_of(const RunReport& run);

// "complete", "capturing", "left-behind".
const char* state_name(const RunReport& run);

// `runs`.
int run_runs(const Invocation& call, Environment& env);

std::string runs_text(const std::vector<RunReport>& runs);
std::string runs_json(const std::vector<RunReport>& runs);
