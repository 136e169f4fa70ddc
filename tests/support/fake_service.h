// A service for tests of the phone itself: this very test binary, started by the phone's init in
// the daemon's place. It notes what it was given, leaves processes of every stubborn kind, and
// listens.
#pragma once

#include <string>
#include <vector>

// Launcher options that put it in; more may be added.
std::vector<std::string> fake_service_options();

// What it noted about itself, one "name=value" a line: pid, ppid, sid, umask, cwd, fds, groups, and
// its whole environment as "env.NAME=VALUE".
constexpr const char* kFakeServiceNotes = "/data/local/tmp/service.txt";

// The names (comm) of the processes that it leaves: one in a session of its own that ignores
// SIGTERM, one orphaned grandchild, and a tool that was started by exec.
constexpr const char* kFakeServiceLeaves[] = {"left-session", "left-orphan", "sleep"};
