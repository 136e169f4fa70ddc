// The command line of the bench phone's launcher, as values.
#pragma once

#include <set>
#include <string>
#include <utility>
#include <vector>

struct PhoneOptions {
  std::string data_size = "1g";         // of /data, as tmpfs takes it
  std::string sdcard_size = "512m";     // of /data/media/0, also seen as /sdcard
  bool one_pool = false;                // /data/media/0 takes its room from /data, as on a phone
  std::vector<std::string> properties;  // KEY=VALUE, in order
  std::vector<std::pair<std::string, std::string>> files;  // host path, path in the phone
  std::vector<std::string> environment;                    // K=V, for services and COMMAND
  bool services = true;                                    // false: init starts no service
  std::set<std::string> loose;                             // of kLooseWords
  bool input = false;                                      // virtual input devices
  std::string daemon;                                      // "": the one of this build
  std::string pid_file;
  int adb_port = -1;               // of the host's loopback; 0: any that is free, -1: no adb
  std::string adb_user = "shell";  // or "root"
  std::string failed_logs;         // where the logs of a COMMAND that fails are kept, "": nowhere
  std::string taken;               // where the files of kTakenDir go, "": nowhere
  int timeout_s = 0;               // end of everything, 0: none
  std::vector<std::string> command;
  bool help = false;
};

// Below the phone's /data; what COMMAND puts there can outlive the phone.
constexpr const char* kTakenDir = "/local/taken";

// What is stricter than Linux by itself asks for, and can be switched off.
constexpr const char* kLooseWords[] = {"capabilities", "data", "properties", "sdcard", "tmp"};

// Shown for --help and after a usage error.
extern const char* const kPhoneUsage;

// False with one line in `error` when the arguments make no sense. A size is bytes or has one of
// the suffixes k, m, g (also KiB, MiB, GiB).
bool parse_phone_options(const std::vector<std::string>& arguments, PhoneOptions* options,
                         std::string* error);
