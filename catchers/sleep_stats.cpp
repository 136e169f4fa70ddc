#include "catchers/sleep_stats.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "selflog/log.h"

SleepCounters s_sleep_counters;

namespace {

constexpr char kLogSource[] = "commands";
constexpr char kRpmStats[] = "/sys/kernel/debug/rpm_stats";
constexpr char kSystemSleepStats[] = "/sys/power/system_sleep/stats";
constexpr char kRpmMasterStats[] = "/sys/kernel/debug/rpm_master_stats";
constexpr char kRpmhMasterStats[] = "/sys/power/rpmh_stats/master_stats";
constexpr size_t kLineSize = 512;

// A key, and its value's offset from the key's first character: after the key and one separator.
struct StatsKey {
  const char* text;
  size_t value_offset;
};
constexpr StatsKey kCount = {"count", 6};
constexpr StatsKey kXoCount = {"xo_count", 9};
constexpr StatsKey kSleepCount = {"Sleep Count", 12};

bool contains(const char* text, const char* word) {
  return strstr(text, word) != nullptr;
}

// The value's text, "" when the line ends before it; null when the line does not have the key.
const char* value_of(const char* text, const StatsKey& key) {
  const char* found = strstr(text, key.text);
  if (found == nullptr) return nullptr;
  return strnlen(found, key.value_offset) < key.value_offset ? "" : found + key.value_offset;
}

int32_t hexadecimal(const char* text) {
  return static_cast<int32_t>(strtol(text, nullptr, 16));
}

// Passes every line of `path` to `parser`. False when it cannot be opened.
template <typename Parser>
bool read_lines(const char* path, Parser parser) {
  FILE* file = fopen(path, "re");
  if (file == nullptr) return false;
  char line[kLineSize];
  while (fgets(line, sizeof(line), file) != nullptr) parser.line(line, &s_sleep_counters);
  fclose(file);
  return true;
}

bool can_open(const char* path) {
  FILE* file = fopen(path, "re");
  if (file != nullptr) fclose(file);
  return file != nullptr;
}

void read_aosd_and_cxsd() {
  LOGD("function invoked");
  read_lines(kSystemSleepStats, AosdCxsdParser());
}

void read_vmin() {
  LOGD("function invoked");
  read_lines(kRpmStats, VminParser());
}

}  // namespace

void AosdCxsdParser::line(const char* text, SleepCounters* counters) {
  LOGD_AS("read_aosd_and_cxsd", "fd_power_system_sleep_stats Message %s", text);
  const char* value = value_of(text, kCount);
  if (aosd_ && value != nullptr) {
    counters->aosd_count = atoi(value);
    LOGD_AS("read_aosd_and_cxsd", "fd_power_system_sleep_stats aosd count is %s", value);
    LOGD_AS("read_aosd_and_cxsd", "aosd count is %d", counters->aosd_count);
    aosd_ = false;
  }
  if (cxsd_ && value != nullptr) {
    counters->cxsd_count = atoi(value);
    LOGD_AS("read_aosd_and_cxsd", "fd_power_system_sleep_stats cxsd count is %s", value);
    LOGD_AS("read_aosd_and_cxsd", "cxsd count is %d", counters->cxsd_count);
    cxsd_ = false;
  }
  aosd_ = aosd_ || contains(text, "aosd");
  cxsd_ = cxsd_ || contains(text, "cxsd");
}

void VminParser::line(const char* text, SleepCounters* counters) {
  LOGD_AS("read_vmin", "fd_kernel_rpm_stats Message %s", text);
  const char* value = section_.searches() ? value_of(text, kCount) : nullptr;
  if (value != nullptr) {
    counters->vmin_count = atoi(value);
    LOGD_AS("read_vmin", "fd_kernel_rpm_stats vmin count is %s", value);
    LOGD_AS("read_vmin", "vmin count is %d", counters->vmin_count);
  }
  section_.next(contains(text, "vmin"), value != nullptr);
}

void MasterParser::line(const char* text, SleepCounters* counters) {
  const char* name = "read_numshutdowns_and_xo_count";
  LOGD_AS(name, "fd_kernel_rpm_master_stats Message %s", text);
  const bool searches = section_.searches();
  const char* xo = searches ? value_of(text, kXoCount) : nullptr;
  if (xo != nullptr) {
    counters->xo_count = hexadecimal(xo);
    LOGD_AS(name, "fd_kernel_rpm_master_stats xo_count is %s", xo);
    LOGD_AS(name, "xo_count is %d", counters->xo_count);
  }
  const char* key = searches ? strstr(text, "numshutdowns") : nullptr;
  const char* value = key == nullptr ? nullptr : strchr(key, '0');  // the values are "0x..."
  if (value != nullptr) {
    counters->mpss_numshutdowns = hexadecimal(value);
    LOGD_AS(name, "MPSS message is %s", value);
    LOGD_AS(name, "MPSS numshutdowns is %d", counters->mpss_numshutdowns);
  }
  section_.next(contains(text, "MPSS"), key != nullptr);
}

void RpmhParser::line(const char* text, SleepCounters* counters) {
  LOGD_AS("read_sleep_count", "fd_power_rpmh_master_stats Message %s", text);
  const char* value = section_.searches() ? value_of(text, kSleepCount) : nullptr;
  if (value != nullptr) {
    counters->sleep_count = hexadecimal(value);
    LOGD_AS("read_sleep_count", "fd_power_rpmh_master_stats Sleep Count is %s", value);
    LOGD_AS("read_sleep_count", "Sleep Count is %d", counters->sleep_count);
  }
  section_.next(contains(text, "MPSS"), value != nullptr);
}

void read_vmin_or_aosd_and_cxsd() {
  LOGD("function invoked");
  if (!can_open(kSystemSleepStats)) return;  // vmin is not read on a device without it
  if (can_open(kRpmStats)) {
    read_vmin();
  } else {
    read_aosd_and_cxsd();
  }
}

void read_numshutdowns_and_xo_count() {
  LOGD("function invoked");
  read_lines(kRpmMasterStats, MasterParser());
}

void read_sleep_count() {
  LOGD("function invoked");
  read_lines(kRpmhMasterStats, RpmhParser());
}
