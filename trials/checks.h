// What every trial looks at besides phone/host/daemon.h: what lies around the daemon's trees, what
// the main process holds.
#pragma once

#include <stdint.h>

#include <map>
#include <string>
#include <vector>

#include "phone/host/daemon.h"

// Every path of the phone outside the daemon's own trees, /dev and /proc: kind, mode, owner, size
// and, for a file of up to 1 MiB, content.
std::map<std::string, std::string> surroundings(const Phone& phone);

// Paths that differ between two looks.
std::vector<std::string> differences(const std::map<std::string, std::string>& before,
                                     const std::map<std::string, std::string>& after);

// What the daemon's main process holds.
struct Holdings {
  long pss_kib = 0;
  long private_dirty_kib = 0;
  int threads = 0;
  std::vector<std::string> descriptors;  // what they point at, without inode numbers; sorted
};
Holdings holdings(const Phone& phone);
// What it holds when it is idle, not what a thread opens for a moment.
Holdings lasting_holdings(const Phone& phone);

// The names of everything that runs in the phone, sorted. Kernel names, without the trial's own.
std::vector<std::string> running(const Phone& phone);

// One line: texts between blanks.
std::string joined(const std::vector<std::string>& texts);
