// The network log: packet capture by a platform script, and snapshots of the configuration.
#pragma once

#include <stddef.h>

// One command of a snapshot: the program and its argument text, "" or beginning with a blank.
struct net_cmd_path {
  const char* cmd;
  const char* args;
};

// The directory of the network log, "" while "net" was not started in this process. Main process or
// size monitor.
extern char net_log_dir[256];

// Writes <net_log_dir>/<file_name>: each of the `count` commands with what it prints. A command
// takes its own time, 120 s at most. Nothing when the file cannot be made.
void catcher_net_cmd_log(const net_cmd_path* table, size_t count, const char* file_name);

// The closing snapshot of a real stop, when "net" was started here. Then forgets the directory.
void stop_net_cmd_log();
