// Saves the logs of a phone on the host after a failure.
#pragma once

#include <string>

// In the phone: COMMAND writes the name for its saved logs here.
constexpr const char* kPhoneNameFile = "/dev/bench/name";

// Replaces the host's `directory` with the bench's records, the log buffers and the self logs of a
// phone. `dev` and `data` are the host's paths of its /dev and /data; descriptors of them
// (/proc/self/fd/N) also work after the phone has ended. Copies what it can. False when nothing was
// copied.
bool keep_logs(const std::string& dev, const std::string& data, const std::string& directory);

// Copies the regular files of the directory `from` to `to`; returns how many.
int copy_files(const std::string& from, const std::string& to);
