#include <cutils/properties.h>
#include <stdlib.h>
#include <sys/stat.h>

#include "base/process.h"
#include "base/text.h"
#include "catchers/app_files.h"
#include "catchers/catchers.h"
#include "debuglog/modem_logger.h"
#include "debuglog/run.h"
#include "model/properties.h"
#include "selflog/log.h"
#include "selflog/props.h"
#include "storage/utils.h"

namespace {

constexpr char kLogSource[] = "commands";
constexpr char kModemFilesProp[] = "persist.sys.harrowmossd.mdlog_counts";
constexpr char kDefaultModemFiles[] = "25";
constexpr int kStorageGraceMs = 500;  // before the first start of the newer logger at boot
constexpr int kLoggerStartMs = 1000;  // for the vendor's service to come up

// The modem logger's mask file: where the app leaves it and where the logger reads it.
struct DiagCfg {
  const char* source;
  const char* target;
};
constexpr DiagCfg kFirstModem = {kDiagCfg, "/data/vendor/zelkalog/.DIAG.cfg"};
constexpr DiagCfg kSecondModem = {kDiagMdm2Cfg, "/data/vendor/zelkalog/.DIAGMDM2.cfg"};

// cp would block forever on a planted FIFO.
void copy_mask_file(const DiagCfg& cfg) {
  struct stat info;
  if (stat(cfg.source, &info) == 0 && !S_ISREG(info.st_mode)) {
    LOGE_AS("catcher_modem_log", "not a file: %s", cfg.source);
    return;
  }
  copy_file(cfg.source, cfg.target);
}

}  // namespace

int catcher_modem_log(const char* /*log_dir*/, const char* name) {
  LOGD("function invoked");
  char dir[256];
  format_cut(dir, "%s/%s", s_vendor_log_root_path, name);
  creat_dir(dir);

  const std::string prop_5g = get_string_prop(kSecondChannelProp, "false");
  const std::string types_wifi = get_string_prop("persist.sys.zklog.wifi_mdm2", "0");
  LOGD("prop_5g=%s, types_wifi=%s, creat_dir=%s, log path=%s", prop_5g.c_str(), types_wifi.c_str(),
       dir, s_log_store_path);
  const bool second_modem = atoi(types_wifi.c_str()) == 1;
  if (second_modem) LOGE("wifi log 2");
  const DiagCfg& cfg = second_modem ? kSecondModem : kFirstModem;
  copy_mask_file(cfg);

  if (get_int_prop(kModemFilesProp, 0) < 1) {
    property_set(kModemFilesProp, kDefaultModemFiles);
    LOGW("set default mdlog counts %s", kDefaultModemFiles);
  }
  property_set("sys.harrowmossd.diag_mdlog_path", dir);
  property_set("sys.harrowmossd.diag_mdlog_cfg", cfg.target);
  property_set("sys.harrowmossd.diag_mdlog_src_cfg", cfg.source);
  if (is_legacy_diag_mdlog()) {
    property_set(kLegacyModemStateProp, "1");
  } else {
    if (get_int_prop("sys.boot_completed", 0) == 0 && get_int_prop(kMountedProp, 0) == 0) {
      sleep_ms(kStorageGraceMs);
    }
    property_set(kModemStateProp, "1");
  }
  sleep_ms(kLoggerStartMs);
  return 0;
}
