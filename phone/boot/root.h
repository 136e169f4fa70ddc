// Builds the file tree of a bench phone and makes it the root of the calling process.
#pragma once

#include <string>

#include "phone/boot/options.h"

// Files of the host that the launcher puts into the phone.
struct PhoneParts {
  std::string tools;        // our own programs and scripts: init, logcat, ..., system/
  std::string daemon;       // harrowmossd; "": leave it out
  std::string client;       // harrowmossctl; "": leave it out
  std::string mount_point;  // an empty directory of the host; removed on success
};

// Finds the parts beside the launcher's executable. False with one line in `error`.
bool find_phone_parts(const PhoneOptions& options, PhoneParts* parts, std::string* error);

// Runs in the phone's first process, in mount, pid and net namespaces of its own. Afterwards "/" is
// the phone and the rest of the host is unreachable. False with one line in `error`.
bool enter_phone_root(const PhoneParts& parts, const PhoneOptions& options, std::string* error);
