// Everything outside that the client uses; tests replace it.
#pragma once

#include <stdint.h>
#include <stdio.h>

#include <functional>
#include <string>

// Exit codes; scripts rely on them.
enum ExitCode {
  kExitOk = 0,
  kExitDaemonFailed = 1,  // the daemon answered with a negative result
  kExitFailed = 1,        // a command of the client's own found something wrong, or failed
  kExitUsage = 2,
  kExitNoConnection = 3,
  kExitTimedOut = 4,  // or busy with another client
  kExitBadReply = 5,  // not the protocol, or the connection ended early
};

// The file system of a path.
struct VolumeSpace {
  int64_t block = 4096;   // bytes; files take whole blocks
  int64_t available = 0;  // bytes that ordinary users may still write
};

struct Environment {
  // A non-blocking, connected stream socket that the caller closes, or -1 with errno.
  std::function<int()> dial;
  // The value of a property, or the second argument when it is unset or empty.
  std::function<std::string(const char*, const char*)> property;
  // False when statfs() fails or the file system has no size.
  std::function<bool(const std::string& path, VolumeSpace* out)> space;
  bool has_output = true;  // false: standard output was closed at the start
  FILE* out;
  FILE* err;
  bool progress;         // show steps on `err` while a long request runs
  std::string root;      // put before every other absolute path of the phone; "" on the phone
  std::string proc;      // "/proc"
  std::string store;     // finished runs
  std::string working;   // runs being captured
  std::string self_log;  // the daemon's own log
};

// Opens /dev/null for each standard stream that is closed: a file opened later would take its
// number. Returns whether standard output was open.
bool fill_standard_streams();

// The phone's own: the reserved control socket, system properties, standard streams, absolute
// paths.
Environment phone_environment();
