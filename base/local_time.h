// Local time without the C library's time zone lock, which a child forked beside a thread that
// holds it would wait for for ever.
#pragma once

#include <stddef.h>
#include <time.h>

// A date and time of day, plain numbers as people write them (month 1..12).
struct civil_time {
  int year;
  int month;
  int day;
  int hour;
  int minute;
  int second;
};

// Seconds east of UTC. Asked from the C library when the clock enters another quarter of an hour
// (every zone changes its offset on one), by the first thread of a process and never in a handler;
// everybody else gets the last known answer.
long utc_offset(time_t now);

// Pure arithmetic: the civil time of `now` at `offset` seconds east of UTC.
civil_time to_civil(time_t now, long offset);

// The local civil time of now in a zone that was asked for just now, where that is allowed: for
// names of runs and files, which people compare with their watch. First thread of a process.
civil_time current_local_time();

// The local civil time of `now`, for log lines.
inline civil_time local_civil_time(time_t now) {
  return to_civil(now, utc_offset(now));
}
