// The network log: packet capture by a platform script, and snapshots of the configuration.
#pragma once

#include <stddef.h>

#include "storage/shell.h"

// One command of a snapshot: the program and its argument text, "" or beginning with a blank.
struct net_cmd_path {
  FixedText cmd;
  FixedText args;
};

// The directory of the network log, "" while "net" was not started in this process. Main process or
// size monitor.
extern char net_log_dir[256];

// Writes <net_log_dir>/<file_name>: each of the `count` commands with what it prints. A command
// is skipped once all of them have taken 120 s, and killed when it writes more than 16 MiB. Nothing
// when the file cannot be made.
void catcher_net_cmd_log(const net_cmd_path* table, size_t count, const char* file_name);

// The closing snapshot of a real stop, when "net" was started here, in the directory of the current
// run. Then forgets the directory.
void stop_net_cmd_log();
