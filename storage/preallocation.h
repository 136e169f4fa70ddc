// Room on /data that logcats hold for lines to come: a capture's logcat allocates its whole
// rotation size at once.
#pragma once

#include <stdint.h>

// Bytes that the logcat files of all runs in the working area have allocated behind their ends.
// Only those of the current run have any: what an ended logcat leaves is given back. Any process.
int64_t preallocated_by_captures();

// Gives back what the logcats of an earlier life of the daemon have left. Nothing may capture yet.
// Main process.
void give_back_preallocation();
