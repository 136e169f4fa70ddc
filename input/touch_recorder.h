// The touch event recorder's switch. One recorder per process.
#pragma once

// Sets the recording flag. Returns 1. Before the recorder runs, in its process.
int start_tp_log();

// Clears the recording flag; the recorder ends with the next event. Returns 0. Any process, signal
// handlers included.
int stop_tp_log();
