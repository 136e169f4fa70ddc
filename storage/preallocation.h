// Space on /data that logcats preallocate: a capture's logcat allocates its whole rotation size at
// once.
#pragma once

#include <stdint.h>

// Bytes that the logcat files of all runs in the working area have allocated behind their ends.
// Only those of the current run have any: what an ended logcat leaves is given back. Any process.
int64_t preallocated_by_captures();

// Frees what the logcats of a killed daemon have left. At start-up, before logging begins; main
// process.
void give_back_preallocation();
