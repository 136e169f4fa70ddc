// The kernel's low-power statistics as real phones print them, with the numbers as parameters.
#pragma once

#include <cstdio>
#include <string>

constexpr char kRpmStatsFile[] = "/sys/kernel/debug/rpm_stats";
constexpr char kSystemSleepFile[] = "/sys/power/system_sleep/stats";
constexpr char kRpmMasterFile[] = "/sys/kernel/debug/rpm_master_stats";
constexpr char kRpmhMasterFile[] = "/sys/power/rpmh_stats/master_stats";

inline std::string sleep_text(const char* format, int number) {
  char text[64];
  snprintf(text, sizeof(text), format, number);
  return text;
}

inline std::string rpm_mode_text(const char* mode, int count) {
  return std::string("RPM Mode:") + mode + sleep_text("\n\t count:%d\n", count) +
         "time in last mode(msec):3105\ntime since last mode(sec):2\n"
         "actual last sleep(msec):612044\nclient votes: #01000101\n\n";
}

// The processor's counters on models without, and with, the older statistics file.
inline std::string system_sleep_text(int aosd, int cxsd) {
  return rpm_mode_text("aosd", aosd) + rpm_mode_text("cxsd", cxsd);
}
inline std::string rpm_stats_text(int vmin) {
  return rpm_mode_text("xosd", 77) + rpm_mode_text("vlow", 78) + rpm_mode_text("vmin", vmin) +
         rpm_mode_text("vlast", 79);
}

// The modem's, between those of the other processors.
inline std::string rpm_master_part(const char* name, int xo, int shutdowns) {
  return std::string(name) +
         "\n\t shutdown_req:0x0000000A5D5E70A2\n\t last_sleep_transition:0x5\n" +
         sleep_text("\t xo_count:0x%x\n", xo) + "\t wakeup_reason:0x0\n" +
         sleep_text("\t numshutdowns:0x%x\n", shutdowns) + "\t active_cores:0x0\n";
}
inline std::string rpm_master_text(int xo, int shutdowns) {
  return rpm_master_part("APSS", 0x111, 0x112) + rpm_master_part("MPSS", xo, shutdowns) +
         rpm_master_part("ADSP", 0x113, 0x114);
}
inline std::string rpmh_master_part(const char* name, int sleep) {
  return std::string(name) + "\n\tVersion:0x1\n" + sleep_text("\tSleep Count:0x%x\n", sleep) +
         "\tSleep Last Entered At:0x31\n\tSleep Last Exited At:0x34\n"
         "\tSleep Accumulated Duration:0x99\n\n";
}
inline std::string rpmh_master_text(int sleep) {
  return rpmh_master_part("APSS", 0x211) + rpmh_master_part("MPSS", sleep) +
         rpmh_master_part("CDSP", 0x212);
}
