#include "client/settings.h"

#include <limits.h>
#include <stdlib.h>

#include "base/text.h"
#include "model/eviction.h"
#include "model/masks.h"

namespace {

constexpr const char* kEnable = "persist.sys.zklog.enable";
constexpr const char* kTypes = "persist.sys.zklog.type";
constexpr const char* kStorePath = "sys.harrowmossd.log_store_path";
constexpr const char* kQuota = "persist.sys.zelka.log.size";
constexpr const char* kDeletion = "persist.sys.zelka.log.del";

constexpr int32_t kModemAndWifi =
    kTypeModem | kTypeWifi;  // either shrinks the quota to three quarters

}  // namespace

bool shrinks_quota(int32_t types) {
  return (types & kModemAndWifi) != 0;
}

LoggingSettings read_settings(const Environment& env) {
  LoggingSettings settings;
  settings.logging = env.property(kEnable, "off").compare(0, 2, "on") == 0;
  settings.types = atoi(env.property(kTypes, "1").c_str());
  settings.store_path = env.property(kStorePath, "");
  settings.run_name = settings.store_path.substr(settings.store_path.find_last_of('/') + 1);
  settings.quota_setting = read_count(env.property(kQuota, ""), INT_MAX, kDefaultQuotaGib);
  settings.quota_gib = (shrinks_quota(settings.types) ? 0.75 : 1.0) * settings.quota_setting;
  settings.deletion = env.property(kDeletion, "true") == "true";
  return settings;
}
