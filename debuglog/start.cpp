#include <cutils/properties.h>
#include <stdio.h>
#include <string.h>
#include <sys/vfs.h>

#include "base/deferred_signals.h"
#include "base/local_time.h"
#include "base/process.h"
#include "base/text.h"
#include "debuglog/commands.h"
#include "debuglog/logger_types.h"
#include "debuglog/modem_logger.h"
#include "debuglog/run.h"
#include "debuglog/workers.h"
#include "model/data_room.h"
#include "model/paths.h"
#include "model/properties.h"
#include "selflog/log.h"
#include "selflog/props.h"
#include "selflog/self_logger.h"
#include "storage/shell.h"
#include "storage/store.h"
#include "storage/utils.h"

namespace {

constexpr char kLogSource[] = "commands";
constexpr int kBugreportTicks = 3000;  // of 100 ms: about 5 minutes

// statfs(); false, logged, when it fails or reports no size.
bool query(const char* mount, struct statfs* info) {
  if (statfs(mount, info) == 0 && info->f_blocks != 0) return true;
  LOGE_AS("detail_avail_storage_space", "Failed to get file:%s storage space", mount);
  return false;
}

// Takes the next number, names the run, and makes and publishes its directories.
void open_run() {
  creat_dir(kStoreDir);
  const int sequence = get_log_dir_sequence() + 1;
  char text[PROPERTY_VALUE_MAX];
  format_cut(text, "%d", sequence);
  property_set(kSequenceProp, text);
  char name[sizeof(s_log_dir_name)];
  get_current_datetime_with_sequence(name, sequence);
  enter_run(name);

  char final_path[sizeof(s_log_store_path)];
  format_cut(final_path, "%s%s", kStoreDir, s_log_dir_name);
  property_set(kStorePathProp, final_path);

  creat_dir(s_log_store_path);
  creat_dir(s_vendor_log_root_path);
  property_set("sys.harrowmossd.vendor_log_root_path", s_vendor_log_root_path);
  LOGD_AS("start_debug_log", "current work dir : %s", s_log_dir_name);
}

void start_types(int32_t mask) {
  for (const LoggerType& type : kLoggerTypes) {
    if ((type.mask & mask) != 0) type.start(s_log_store_path, logger_type_name(type.mask));
  }
}

// The bug report worker's body.
[[noreturn]] void write_bugreport(bool start, const char* store_path) {
  LOGD_AS("catch_bugreport", "start=%d", start);
  char dir[4096];
  format_cut(dir, "%s/%s", store_path, "bugreport");
  creat_dir(dir);
  const char* file = start ? "/bugreport_start.zip" : "/bugreport_stop.zip";
  run_shell(ShellText("bugreportz -s >").target(std::string(dir) + file));
  end_process(0);
}

}  // namespace

int start_debug_log() {
  const ScopedNoSafePoints until_done;
  LOGD("function invoked");
  create_store_dir_if_needed();
  restorecon_media_zelkalog();
  detail_avail_storage_space();
  const bool enabled = is_logger_enabled();
  const int32_t types = get_logger_types();
  property_set(kBtsnoopProp, "true");
  if (!enabled) return 0;
  loggersystem::startSelfLogCollector(&s_self_log_collector_pid);
  open_run();
  if ((types & kTypeExtendedLogcat) != 0) s_extended_logcat_count = true;
  start_types(types);
  property_set(kFingerprintDumpProp, "on");
  property_set(kModemDumpProp, "on");
  catch_bugreport(true, s_log_store_path);
  return 0;
}

int get_current_datetime_with_sequence(char* out, int sequence) {
  const CivilTime now = current_local_time();
  char number[16] = "";
  if (sequence >= 1) format_cut(number, "%d#", sequence);
  return snprintf(out, sizeof(s_log_dir_name), "%s%02d-%02d_%02d-%02d-%02d", number, now.month,
                  now.day, now.hour, now.minute, now.second);
}

void restorecon_media_zelkalog() {
  LOGD("function invoked");
  if (!is_legacy_diag_mdlog()) return;
  LOGW("restorecon zelkalog selabel under media for legacy products");
  property_set("sys.zelka.harrowmossd.restorecon_media_zelkalog", "1");
}

void detail_avail_storage_space() {
  LOGD("function invoked");
  struct statfs info;
  if (query(kSdcard, &info) &&
      static_cast<int64_t>(info.f_bsize) * static_cast<int64_t>(info.f_bavail) <= kSdcardReserve) {
    property_set(kEnableProp, "off");
    LOGW("There is not enough disk space left to capture the log");
  }
  if (!query(kData, &info)) return;
  const int64_t available =
      static_cast<int64_t>(info.f_bsize) * static_cast<int64_t>(info.f_bavail);
  if (available > kDataReserve) return;
  property_set(kEnableProp, "off");
  LOGW("There is not enough data space left to capture the log, data_space=%lu",
       static_cast<unsigned long>(available));
}

void catch_bugreport(bool start, const char* store_path) {
  const bool enabled = get_int_prop("persist.sys.zelka.harrowmossd.bugreport_enable", 0) == 1;
  LOGE("enable=%d", enabled);
  if (!enabled) return;
  const pid_t pid = fork_process(Group::kNew);
  if (pid == 0) write_bugreport(start, store_path);
  if (pid == -1) {
    LOGE("failed to fork child.");
    return;
  }
  wait_child_to_finish(pid, kBugreportTicks);
}
