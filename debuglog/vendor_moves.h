// The handshake with vendor services that move their logs into the store.
#pragma once

#include <stdint.h>

// When the vendor's move was asked for, in seconds since the epoch.
extern int64_t s_vendor_mv_start_secs;

// Asks the vendor side to move its logs into the store, and notes the time.
void do_move_vendor_logs();
