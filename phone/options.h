// The command line of the bench phone's launcher, as values.
#pragma once

#include <string>
#include <utility>
#include <vector>

struct PhoneOptions {
  std::string data_size = "512m";                          // of /data, as tmpfs takes it
  std::string sdcard_size = "512m";                        // of /data/media/0, also seen as /sdcard
  std::vector<std::string> properties;                     // KEY=VALUE, in order
  std::vector<std::pair<std::string, std::string>> files;  // host path, path in the phone
  std::vector<std::string> environment;                    // K=V, for services and COMMAND
  bool services = true;                                    // false: init starts no service
  bool input = false;                                      // devices that `finger` plugs
  std::string daemon;                                      // "": the one of this build
  std::string pid_file;
  int timeout_s = 0;  // end of everything, 0: none
  std::vector<std::string> command;
  bool help = false;
};

// Shown for --help and after a usage error.
extern const char* const kPhoneUsage;

// False with one line in `error` when the arguments make no sense. A size is bytes or has one of
// the suffixes k, m, g (also KiB, MiB, GiB).
bool parse_phone_options(const std::vector<std::string>& arguments, PhoneOptions* options,
                         std::string* error);
