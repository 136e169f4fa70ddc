// What the stop brings into the store from outside of the daemon's own workers. Main process or
// size monitor; moves and copies take as long as they take, the waits are bounded.
#pragma once

// Waits for the vendor's move within what is left of its budget, then sorts the wifi logs.
void wait_vendor_mv_actions_done();

// Moves the wifi firmware logs of the finished run into its wlan_logs directory, once a run.
void move_wifi_log_if_needed();
