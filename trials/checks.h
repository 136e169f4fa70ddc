// Checks common to all trials: the files outside the daemon's trees, and the resources of the main
// process.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "phone/host/daemon.h"

// Every path of the phone outside the daemon's trees, /dev and /proc: kind, mode, owner, size, and
// the content of files of up to 1 MiB.
std::map<std::string, std::string> surroundings(const Phone& phone);

// Paths that differ between two states.
std::vector<std::string> differences(const std::map<std::string, std::string>& before,
                                     const std::map<std::string, std::string>& after);

// Resources of the daemon's main process.
struct Resources {
  long pss_kib = 0;
  long private_dirty_kib = 0;
  int threads = 0;
  std::vector<std::string> descriptors;  // targets without inode numbers, sorted
};
Resources resources(const Phone& phone);
// The resources of the idle daemon, without what a thread opens for a moment.
Resources idle_resources(const Phone& phone);

// Kernel names of all processes in the phone, sorted, without the trial's own.
std::vector<std::string> running(const Phone& phone);

// The texts in one line, separated by blanks.
std::string joined(const std::vector<std::string>& texts);
