// Why there is no log: facts about the phone, a table of what can be wrong with them, and the
// remedies.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "client/commands.h"
#include "client/connection/connection.h"
#include "client/support/environment.h"
#include "client/support/settings.h"
#include "client/support/volume.h"

// Whether somebody else is being served.
enum class OtherClient { kUnknown, kConnected, kNone };

// A file that a logger type needs of the platform.
struct MissingFile {
  std::string path;
  std::string needed_for;  // a logger type's name, or "everything"
};

struct HealthFacts {
  LoggingSettings settings;
  std::string enable;     // the switch as it is set
  std::string type_text;  // the mask as it is set, "" when unset
  std::string mounted;    // "vold.mounted"
  bool self_log = true;
  std::vector<VolumeReading> volumes;
  std::vector<MissingFile> missing;
  std::vector<std::string> left_behind;  // runs in the working area that nothing writes
  bool sees_daemon = false;              // its process, which may be hidden from us
  bool sees_monitor = false;
  bool sees_logcats = false;  // a worker of the type "mobile"
  std::string lost_run;       // a directory that is gone though the run's writers live; "" none
  Outcome session;            // of asking the daemon for its version
  std::chrono::milliseconds waited{0};  // for its end
  OtherClient other = OtherClient::kUnknown;
};

struct Finding {
  const char* id;  // stays the same for scripts
  std::string text;
  const char* remedy;
};

// Looks at everything; waits for the daemon until `deadline` at most.
HealthFacts read_health(const Environment& env, SteadyTime deadline);

// What is wrong, in the order in which it should be mended; empty when nothing is.
std::vector<Finding> judge_health(const HealthFacts& facts);

// `doctor`: EXIT_OK when nothing is wrong, else EXIT_FAILED.
int run_doctor(const Invocation& call, Environment& env);
