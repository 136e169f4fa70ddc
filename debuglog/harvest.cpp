#include "debuglog/harvest.h"

#include <dirent.h>
#include <errno.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>

#include <string>

#include "base/process.h"
#include "base/scoped.h"
#include "base/text.h"
#include "debuglog/logger_types.h"
#include "debuglog/modem_logger.h"
#include "debuglog/run.h"
#include "debuglog/vendor_moves.h"
#include "model/properties.h"
#include "selflog/log.h"
#include "selflog/props.h"
#include "storage/utils.h"

namespace {

constexpr char kLogSource[] = "commands";
constexpr const char* kWifiLogPrefixes[] = {"cnss_fw_logs_", "host_driver_logs_", "txrx_pktlog_"};

// The legacy vendor side does not report its end: wait this long.
constexpr int kLegacyOneTypeMs = 2000;
constexpr int kLegacyBothTypesMs = 3000;

bool is_wifi_log(const char* name) {
  if (strpbrk(name, "\n\r") != nullptr) return false;
  for (const char* prefix : kWifiLogPrefixes) {
    if (starts_with(name, prefix)) return true;
  }
  return false;
}

void wait_for_legacy_vendor(int32_t types) {
  const int32_t both = kTypeModem | kTypeWifi;
  if ((types & both) == 0) return;
  sleep_ms((types & both) == both ? kLegacyBothTypesMs : kLegacyOneTypeMs);
}

}  // namespace

void wait_vendor_mv_actions_done() {
  LOGD("function invoked.");
  const int32_t types = get_logger_types();
  if (is_legacy_diag_mdlog()) {
    wait_for_legacy_vendor(types);
    return;
  }
  const bool modem_or_wifi = (types & (kTypeModem | kTypeWifi)) != 0;
  const int budget =
      calc_vendor_mv_actions_timeout(s_vendor_mv_start_secs, time(nullptr), modem_or_wifi);
  LOGD("wait timeout %ds", budget);
  s_vendor_mv_start_secs = time(nullptr);
  wait_vendor_mv_action_done(kVendorCommonDoneProp, budget * 10);
  if ((types & kTypeWifi) != 0) {
    const int64_t wasted = time(nullptr) - s_vendor_mv_start_secs;
    const int64_t rest = budget - (wasted > 0 ? wasted : 0);
    const int left = rest > 1 ? static_cast<int>(rest) : 1;
    LOGD("left wait timeout %ds", left);
    wait_vendor_mv_action_done(kVendorWifiDoneProp, left * 10);
  }
  LOGD("wait action done");
  move_wifi_log_if_needed();
}

void move_wifi_log_if_needed() {
  const std::string store = get_string_prop(kStorePathProp, "");
  if (store.empty()) return;
  if (!is_stored_run(store)) {
    LOGE("not a run of the store: %s", store.c_str());
    return;
  }
  const std::string target = store + "/wlan_logs";
  if (is_dir_exist(target.c_str()) == 0) {
    LOGW("dir exists : %s", target.c_str());
    return;
  }
  mkdir_s(target.c_str());
  ScopedDir stream(opendir(store.c_str()));
  if (!stream.valid() || is_dir_exist(target.c_str()) != 0) return;
  while (const dirent* entry = readdir(stream.get())) {
    if (strcmp(entry->d_name, ".") == 0 || strcmp(entry->d_name, "..") == 0) continue;
    char path[4096];
    format_cut(path, "%s/%s", store.c_str(), entry->d_name);
    struct stat info;
    if (stat(path, &info) != 0) {
      LOGE("cannot open directory %s: %s\n", path, strerror(errno));
    } else if (S_ISREG(info.st_mode) && is_wifi_log(entry->d_name)) {
      if (command_fits(ShellCommand::kMoveDir, path, target.c_str())) {
        move_dir(path, target.c_str(), nullptr);
      } else {
        LOGE("name too long to move: %s", path);
      }
    }
  }
}
