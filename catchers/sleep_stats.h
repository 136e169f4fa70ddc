// The platform's low-power statistics, read line by line. The parsers open no files: they take
// lines and change counters. A counter that is not in a text keeps its last value; -1: never seen.
#pragma once

#include <stdint.h>

struct SleepCounters {
  int32_t vmin_count = -1;  // application processor
  int32_t aosd_count = -1;
  int32_t cxsd_count = -1;
  int32_t mpss_numshutdowns = -1;  // modem
  int32_t xo_count = -1;
  int32_t sleep_count = -1;
};

// Selects the lines to search: those after a line with the heading, until the key is found.
class SectionState {
 public:
  // Whether the next line is to be searched for the key. The first line of a file never is.
  bool searches() const { return !first_ && (heading_before_ || wanted_); }

  // Call once for each line, with what was found in it; `has_key` counts when it was searched.
  void next(bool has_heading, bool has_key) {
    wanted_ = searches() && !has_key;
    heading_before_ = has_heading;
    first_ = false;
  }

 private:
  bool first_ = true;
  bool heading_before_ = false;
  bool wanted_ = false;
};

// Each parser is given the lines of one file in order, each at most 511 bytes with its newline (a
// longer line arrives in pieces), and logs them.

// "/sys/power/system_sleep/stats": the first "count:" line behind a line that names the counter.
class AosdCxsdParser {
 public:
  void line(const char* text, SleepCounters* counters);

 private:
  bool aosd_ = false;
  bool cxsd_ = false;
};

// "/sys/kernel/debug/rpm_stats": "vmin", then "count:" on a later line.
class VminParser {
 public:
  void line(const char* text, SleepCounters* counters);

 private:
  SectionState section_;
};

// "/sys/kernel/debug/rpm_master_stats": below "MPSS", "xo_count:" and "numshutdowns:" in
// hexadecimal.
class MasterParser {
 public:
  void line(const char* text, SleepCounters* counters);

 private:
  SectionState section_;
};

// "/sys/power/rpmh_stats/master_stats": below "MPSS", "Sleep Count:" in hexadecimal.
class RpmhParser {
 public:
  void line(const char* text, SleepCounters* counters);

 private:
  SectionState section_;
};

// Read the files of the phone into the process's counters. A missing file changes nothing.
extern SleepCounters s_sleep_counters;
void read_vmin_or_aosd_and_cxsd();
void read_numshutdowns_and_xo_count();
void read_sleep_count();
