// What the stop brings into the store from outside of the daemon's own workers. Main process or
// size monitor; moves and copies take as long as they take, the waits are bounded.
#pragma once

// Waits for the vendor's move within what is left of its budget, then sorts the wifi logs.
void wait_vendor_mv_actions_done();

// Moves the wifi firmware logs of the finished run into its wlan_logs directory, once a run.
void move_wifi_log_if_needed();

// Has the vendor deliver new minidumps, and shows what it has staged when it is more than 512 KiB.
void copy_minidump_if_needed();

// Moves application heap dumps of more than 64 KiB into the store.
void copy_apps_oom_heapdump();

// Moves traces into the store, or into the working area when that cannot be. The argument is not
// used.
void do_move_traces(const char* ignored);

// Ends the logcats of the general collection, waiting for each without bound, and deletes what they
// wrote. Returns the result of the deletion.
int stop_general_log();
