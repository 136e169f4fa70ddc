// Local time without the C library's time zone lock: a child forked while another thread holds that
// lock would block forever.
#pragma once

#include <time.h>

// A date and time of day; month 1..12.
struct CivilTime {
  int year;
  int month;
  int day;
  int hour;
  int minute;
  int second;
};

// True if localtime_r() is safe here: main thread, no signal handler, not forked from an extra
// thread.
bool may_convert_time();

// Marks the extent of a signal handler: the code that it interrupted may hold the C library's lock.
// Counted in a plain variable: a thread_local one allocates at a thread's first use on Android.
class ScopedSignalHandler {
 public:
  ScopedSignalHandler();
  ~ScopedSignalHandler();
  ScopedSignalHandler(const ScopedSignalHandler&) = delete;
  ScopedSignalHandler& operator=(const ScopedSignalHandler&) = delete;
};

// Seconds east of UTC. Asks the C library once in a quarter of an hour (zones change their offset
// on one), where may_convert_time(); elsewhere the last known offset.
long utc_offset(time_t now);

// Pure arithmetic: the civil time of `now` at `offset` seconds east of UTC.
CivilTime to_civil(time_t now, long offset);

// The current local civil time with a fresh offset, where may_convert_time(): for the names of runs
// and files.
CivilTime current_local_time();

// The local civil time of `now`, for log lines.
inline CivilTime local_civil_time(time_t now) {
  return to_civil(now, utc_offset(now));
}
