// Logger types whose capture is still to be written: they are accepted and leave only this line.
#include "catchers/catchers.h"
#include "selflog/log.h"

namespace {

constexpr char kLogSource[] = "commands";

int log_only(const char* function) {
  LOG_AS(ANDROID_LOG_DEBUG, function, "function invoked");
  return 0;
}

}  // namespace

int catcher_net_log(const char*, const char*) {
  return log_only(__func__);
}
int start_power_log(const char*, const char*) {
  return log_only(__func__);
}
int catcher_fp_log(const char*, const char*) {
  return log_only(__func__);
}
int start_dump_log(const char*, const char*) {
  return log_only(__func__);
}
int start_wifi_log(const char*, const char*) {
  return log_only(__func__);
}
int start_core_dump_log(const char*, const char*) {
  return log_only(__func__);
}
int catcher_tp_log(const char*, const char*) {
  return log_only(__func__);
}
int start_systrace_log(const char*, const char*) {
  return log_only(__func__);
}
int start_mpss_dump_log(const char*, const char*) {
  return log_only(__func__);
}
int start_memory_log(const char*, const char*) {
  return log_only(__func__);
}
int start_sensor_log(const char*, const char*) {
  return log_only(__func__);
}
int start_anr_dumpsys_log(const char*, const char*) {
  return log_only(__func__);
}
