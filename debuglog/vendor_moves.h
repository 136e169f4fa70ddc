// The handshake with vendor services that move their logs into the store on request.
#pragma once

#include <stdint.h>

// When the vendor's move was asked for; from the wait on, when the wait began. Seconds since the
// epoch.
extern int64_t s_vendor_mv_start_secs;

constexpr char kVendorCommonDoneProp[] = "sys.zelka.harrowmossd.action.mv_vendor_common_logs.done";
constexpr char kVendorWifiDoneProp[] = "sys.zelka.harrowmossd.action.mv_vendor_wifi_logs.done";

// Asks the vendor side to move its logs into the store, and notes the time.
void do_move_vendor_logs();

// Waits until `done_property` is a number other than 0: looks every 100 ms, `polls` times. Returns
// 1 then, 0 on time-out or at once when `polls` is below 1.
int wait_vendor_mv_action_done(const char* done_property, int polls);

// Seconds that are left of the vendor's time at `now`, when its move was asked for at `start`: 15 s
// with modem or wifi logging, 2 s otherwise. Never below 0. When the clock went back, no time has
// passed.
int calc_vendor_mv_actions_timeout(int64_t start, int64_t now, bool modem_or_wifi);
