// Types that only switch something on; another component acts on it.
#include <cutils/properties.h>

#include "catchers/catchers.h"
#include "debuglog/logger_types.h"
#include "selflog/log.h"
#include "selflog/props.h"
#include "storage/shell.h"

namespace {

constexpr char kLogSource[] = "commands";

}  // namespace

int start_dump_log(const char*, const char*) {
  LOGD("function invoked");
  property_set("persist.sys.ssr.restart_level", "1");
  property_set("persist.sys.ap.restart_level", "1");
  property_set("persist.sys.zelka_pwrkey_dump", "1");
  return 0;
}

void stop_dump_log() {
  LOGD("function invoked");
  if (get_int_prop("persist.sys.zelka.release", 0) != 1) return;
  LOGE("stop dump log");
  property_set("persist.sys.ssr.restart_level", "3");
  property_set("persist.sys.ap.restart_level", "0");
  property_set("persist.sys.zelka_pwrkey_dump", "0");
}

int start_wifi_log(const char*, const char*) {
  LOGD("start wifi log");
  property_set("sys.zelka.wifi.log", "enable");
  LOGE("start wifi log end");
  return 0;
}

void stop_wifi_log() {
  LOGD("function invoked");
  if (!has_logger_type(kTypeWifi)) return;
  LOGD("now stopping wifi log...");
  property_set("sys.zelka.wifi.log", "disable");
}

int start_core_dump_log(const char*, const char*) {
  LOGD("function invoked");
  property_set("persist.debug.trace", "1");
  return 0;
}

void stop_core_dump_log() {
  LOGD("function invoked");
  property_set("persist.debug.trace", "0");
}

int start_memory_log(const char*, const char*) {
  LOGD("function invoked");
  property_set("persist.sys.memory.debug.enable", "1");
  return 0;
}

void stop_memory_log() {
  LOGD("function invoked");
  if (!has_logger_type(kTypeMemory)) return;
  LOGD("stop memory log");
  property_set("persist.sys.memory.debug.enable", "0");
}

int start_sensor_log(const char*, const char*) {
  LOGD("function invoked, start sensor log start");
  property_set("sys.zelka.harrowmossd.sensorlog_state", "1");
  run_shell("echo 1 > /sys/class/light/light/debug");
  LOGE("start sensor log end");
  return 0;
}

void stop_sensor_log() {
  LOGD("function invoked");
  if (!has_logger_type(kTypeSensor)) return;
  LOGE("stop sensor log");
  property_set("sys.zelka.harrowmossd.sensorlog_state", "0");
  run_shell("echo 0 > /sys/class/light/light/debug");
}

int start_anr_dumpsys_log(const char*, const char*) {
  LOGD("function invoked");
  property_set("persist.sys.dumpsys.enable", "1");
  return 0;
}

void stop_anr_dumpsys_log() {
  LOGD("function invoked");
  if (!has_logger_type(kTypeAnrDumpsys)) return;
  LOGD("stop anr dumpsys log");
  property_set("persist.sys.dumpsys.enable", "0");
}
