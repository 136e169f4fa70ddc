// The vendor's part of a stop: waits for its moves and sorts the files that they brought.
// Main process or size monitor; the wait is bounded, moves take as long as they take.
#pragma once

// Waits for the vendor's move within what is left of its budget, then sorts the wifi logs.
void wait_vendor_mv_actions_done();

// Moves the wifi firmware logs of the finished run into its wlan_logs directory, once a run.
void move_wifi_log_if_needed();
