// The watchdog behind the type "MPSSDump": a worker that watches the sleep statistics for a phone
// that no longer sleeps, captures a modem log first and forces a crash dump next.
#pragma once

#include <stdint.h>

#include <atomic>

#include "catchers/sleep_stats.h"

// Valid in the watchdog process; copies in other processes are not updated.
extern std::atomic<bool> mpss_monitor_running;  // cleared by SIGTERM there, by the stop elsewhere
extern bool is_mpss_catch_modem;                // a stuck modem was captured: the next one crashes
extern int32_t mpss_dump_count;                 // number of the next capture directory
extern int32_t last_check_time;  // s of CLOCK_BOOTTIME: the last statistics round, -1 before it
extern int32_t baseline_time;    // when the baseline was taken, -1 before the first
extern SleepCounters s_sleep_baseline;

// ---- The decisions, as functions over values. ----

bool is_round_due(int32_t last_check, int32_t now);  // 600 s after the last one
bool is_verdict_due(int32_t baseline, int32_t now);  // the baseline is 3600 s old
bool is_ap_stuck(const SleepCounters& now, const SleepCounters& baseline);
bool is_modem_stuck(const SleepCounters& now, const SleepCounters& baseline);

// What to do with a phone whose processor is stuck.
enum class Verdict {
  kDumpAtOnce,      // the modem sleeps, the processor does not
  kDumpAfterGrace,  // the modem was captured before and is stuck again
  kExtendCapture,   // a modem log runs already: 20 minutes more
  kStartCapture,    // a modem log for 20 minutes
};
Verdict judge(bool modem_stuck, bool captured_before, bool modem_logger_on);

// ---- What the loop needs of the phone; tests replace it. ----

struct WatchdogWorld {
  int32_t (*now)();  // seconds that only move forward, asleep or not
  void (*sleep)(int milliseconds);
  void (*set_alarm)(unsigned seconds);  // 0 cancels it
  void (*await_alarm)();                // until the alarm's handler has run
  void (*crash)();                      // the forced crash dump; returns only where it is masked
};
extern WatchdogWorld s_watchdog_world;

// The one place that crashes the phone, so that the platform takes its crash dump. It goes through
// the phone's own shell: on a machine without "/system/bin/sh" it can do nothing.
void crash_for_dump();

// The loop. Returns null when `mpss_monitor_running` is cleared. In the forked worker.
void* handle_mpss_stats();

// One turn of the loop: serves a no-service request, and a statistics round when one is due.
void watch_once();

// Asks the watchdog for a modem log, because the phone has no service. 0 when the request was
// recorded, -1 when debug logging with the watchdog's type is not on. Request thread.
int no_service_catch_modem_log();

// Handler of SIGALRM and SIGTERM in the watchdog.
void sign_handler(int sig);

// Resets this process's copies: the flag off, all counters unknown. A step of the stop.
void stop_mpss_watchdog();
