#include "debuglog/logger_types.h"

#include <cutils/properties.h>

#include "catchers/artefacts.h"
#include "catchers/catchers.h"
#include "catchers/net.h"
#include "catchers/watchdog.h"
#include "debuglog/commands.h"
#include "debuglog/modem_logger.h"
#include "debuglog/run.h"
#include "debuglog/vendor_moves.h"
#include "feedback/feedback.h"
#include "input/touch_recorder.h"
#include "protocol/protocol.h"
#include "selflog/log.h"
#include "storage/shell.h"
#include "storage/utils.h"

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

namespace {

constexpr char kLogSource[] = "commands";

void log_step(const char* function) {
  LOG_AS(ANDROID_LOG_DEBUG, function, "function invoked");
}

}  // namespace

// Crash artefacts are copied: their owners keep them. The vendor's move is asked for early: it runs in parallel with
// the rest of the stop.
constexpr closing_step kClosingSteps[kClosingStepCount] = {
    [] { catch_bugreport(false, s_log_store_path); s_extended_logcat_count = false; },
    stop_router_log,
    stop_wifi_log,
    copy_minidump_if_needed,
    stop_modem_log,
    do_move_vendor_logs,
    copy_apps_oom_heapdump,
    stop_sensor_log,
    [] { stop_power_log(s_log_store_path); },
    [] { log_step("get_anr_log"); get_anr_log(s_log_store_path); },
    [] { log_step("get_memory_leak_log"); copy_dir2("/data/anr/heap", s_log_store_path); },
    [] { get_bluetooth_log(s_log_store_path); },
    [] { log_step("get_tombstone_log"); get_tombstone_log(s_log_store_path); },
    [] { property_set("sys.zelka.modemdump", "off"); },
    stop_dump_log,
    stop_systrace_log,
    stop_core_dump_log,
    stop_net_cmd_log,
    [] { stop_tp_log(); },
    stop_memory_log,
    stop_anr_dumpsys_log,
    stop_mpss_dump_log,
    [] { run_shell("echo 0x0 > /sys/module/ipc_router_core/parameters/debug_mask"); },
    [] { copy_system_propertie(s_log_store_path, "_stop"); },
    [] {
      property_set("persist.bluetooth.btsnoopenable", "false");
      property_set("sys.zelka.fp.dump", "off");
    },
    stop_mpss_watchdog,
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
