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
#include "model/properties.h"
#include "selflog/log.h"
#include "storage/shell.h"
#include "storage/utils.h"

// clang-format off
constexpr LoggerType kLoggerTypes[kLoggerTypeCount] = {
    {kTypeMobile,      catcher_mobile_log},
    {kTypeModem,       catcher_modem_log},
    {kTypeNet,         catcher_net_log},
    {kTypePower,       start_power_log},
    {kTypeFingerprint, catcher_fp_log},
    {kTypeDump,        start_dump_log},
    {kTypeWifi,        start_wifi_log},
    {kTypeCoredump,    start_core_dump_log},
    {kTypeTouch,       catcher_tp_log},
    {kTypeSystrace,    start_systrace_log},
    {kTypeMpssDump,    start_mpss_dump_log},
    {kTypeMemory,      start_memory_log},
    {kTypeSensor,      start_sensor_log},
    {kTypeAnrDumpsys,  start_anr_dumpsys_log},
};

namespace {

constexpr char kLogSource[] = "commands";

void log_step(const char* function) {
  LOGD_AS(function, "function invoked");
}

}  // namespace

// ANR traces and tombstones are copied: their owners keep them. The vendor's move is asked for
// early: it runs in parallel with the rest of the stop.
constexpr ClosingStep kClosingSteps[kClosingStepCount] = {
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
    [] { property_set(kModemDumpProp, "off"); },
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
      property_set(kBtsnoopProp, "false");
      property_set(kFingerprintDumpProp, "off");
    },
    stop_mpss_watchdog,
};
// clang-format on

namespace {

constexpr bool has_the_order_of_the_names() {
  if (sizeof(kLoggerTypeNames) / sizeof(kLoggerTypeNames[0]) != kLoggerTypeCount) return false;
  for (int i = 0; i < kLoggerTypeCount; i++) {
    if (kLoggerTypes[i].mask != kLoggerTypeNames[i].mask) return false;
  }
  return true;
}
static_assert(has_the_order_of_the_names(),
              "each named type is started, in the order of the names");

}  // namespace
