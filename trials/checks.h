// What every trial looks at: what a run has captured, what lies around the daemon's trees, what the
// main process holds.
#pragma once

#include <stdint.h>

#include <map>
#include <string>
#include <vector>

#include "phone/host/daemon.h"

// Looks until `done` or until the time has passed on the clock, however long a look takes.
template <typename Done>
bool within_ms(int limit_ms, Done done) {
  const int64_t end = monotonic_now_ms() + limit_ms;
  return eventually([&] { return done() || monotonic_now_ms() > end; }, limit_ms) && done();
}

// What logcats have written, by "RUN/mobile/FILE": only whole lines, as a write may be under way.
using Captured = std::map<std::string, std::string>;

// Adds what the current run has now. Later looks replace earlier ones.
void remember_captured(const Phone& phone, Captured* captured);

// The files whose beginning is not any more what was remembered, neither in the working area nor in
// the store.
std::vector<std::string> lost(const Phone& phone, const Captured& captured);

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
