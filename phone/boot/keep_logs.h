// What a phone leaves behind on the host when something in it has failed.
#pragma once

#include <string>

// Inside: the name of what runs in the phone, when it wants its logs to be kept under it.
constexpr const char* kPhoneNameFile = "/dev/bench/name";

// Replaces the host's `directory` by the bench's own records, the log buffers and the daemon's self
// logs of a phone, whose /dev and /data the host reaches under these two names. Copies what it can,
// also from a phone that has ended, as long as somebody holds the two open. False when there was
// nothing.
bool keep_logs(const std::string& dev, const std::string& data, const std::string& directory);

// Copies the plain files of the directory `from` to the directory `to`; how many.
int copy_files(const std::string& from, const std::string& to);
