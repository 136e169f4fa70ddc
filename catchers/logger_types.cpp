#include "catchers/logger_types.h"

#include "catchers/catchers.h"
#include "protocol/protocol.h"

// clang-format off
constexpr logger_type kLoggerTypes[kLoggerTypeCount] = {  // run top to bottom; not in bit order, keep it so
    {0x0001, "mobile",      catcher_mobile_log},
    {0x0002, "modem",       catcher_modem_log},
    {0x0004, "net",         catcher_net_log},
    {0x0008, "power",       start_power_log},
    {0x0020, "fingerprint", catcher_fp_log},
    {0x0080, "dump",        start_dump_log},
    {0x0040, "wifi",        start_wifi_log},
    {0x0100, "coredump",    start_core_dump_log},
    {0x0010, "touch",       catcher_tp_log},
    {0x0200, "systrace",    start_systrace_log},
    {0x0400, "MPSSDump",    start_mpss_dump_log},
    {0x1000, "memory",      start_memory_log},
    {0x4000, "sensor",      start_sensor_log},
    {0x2000, "anrDumpsys",  start_anr_dumpsys_log},
};
// clang-format on

namespace {

constexpr bool same_text(const char* a, const char* b) {
  while (*a != '\0' && *a == *b) a++, b++;
  return *a == *b;
}

// The client names the types by the protocol's table: both must say the same.
constexpr bool matches_protocol() {
  if (sizeof(kLoggerTypeNames) / sizeof(kLoggerTypeNames[0]) != kLoggerTypeCount) return false;
  for (int i = 0; i < kLoggerTypeCount; i++) {
    if (kLoggerTypes[i].mask != kLoggerTypeNames[i].mask) return false;
    if (!same_text(kLoggerTypes[i].name, kLoggerTypeNames[i].name)) return false;
  }
  return true;
}
static_assert(matches_protocol(), "the protocol names other logger types than are started");

constexpr bool masks_are_distinct_bits() {
  int32_t seen = 0;
  for (const logger_type& type : kLoggerTypes) {
    if (type.mask <= 0 || (type.mask & (type.mask - 1)) != 0 || (seen & type.mask) != 0)
      return false;
    seen |= type.mask;
  }
  return true;
}
static_assert(masks_are_distinct_bits(), "each row needs a bit of its own");

}  // namespace
