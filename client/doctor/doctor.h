// Why there is no log: facts about the phone, checks, and remedies.
#pragma once

#include <string>
#include <vector>

#include "client/commands.h"
#include "client/connection/connection.h"
#include "client/support/environment.h"
#include "client/support/settings.h"
#include "client/support/volume.h"

// Whether another client is connected.
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
  bool sees_daemon = false;              // its process; root's may be hidden
  bool sees_monitor = false;
  bool sees_logcats = false;  // a worker of the type "mobile"
  std::string lost_run;       // the missing directory of a run that is being written; "" none
  Outcome session;            // of asking the daemon for its version
  std::chrono::milliseconds waited{0};  // for its end
  OtherClient other = OtherClient::kUnknown;
};

struct Finding {
  const char* id;  // stays the same for scripts
  std::string text;
  const char* remedy;
};

// Reads all facts; waits for the daemon until `deadline` at most.
HealthFacts read_health(const Environment& env, SteadyTime deadline);

// What is wrong, in the order in which to fix it.
std::vector<Finding> judge_health(const HealthFacts& facts);

// `doctor`: kExitOk when nothing is wrong, else kExitFailed.
int run_doctor(const Invocation& call, Environment& env);
