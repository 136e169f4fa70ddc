#include "client/support/settings.h"

#include <limits.h>
#include <stdlib.h>

#include "base/text.h"
#include "model/eviction.h"
#include "model/masks.h"
#include "model/properties.h"

namespace {

// Either shrinks the quota to three quarters.
constexpr int32_t kModemAndWifi = kTypeModem | kTypeWifi;

}  // namespace

bool shrinks_quota(int32_t types) {
  return (types & kModemAndWifi) != 0;
}

LoggingSettings read_settings(const Environment& env) {
  LoggingSettings settings;
  settings.logging = env.property(kEnableProp, "off").compare(0, 2, "on") == 0;
  settings.types = atoi(env.property(kTypeProp, "1").c_str());
  settings.store_path = env.property(kStorePathProp, "");
  settings.run_name = settings.store_path.substr(settings.store_path.find_last_of('/') + 1);
  settings.quota_setting = read_count(env.property(kQuotaProp, ""), INT_MAX, kDefaultQuotaGib);
  settings.quota_gib = (shrinks_quota(settings.types) ? 0.75 : 1.0) * settings.quota_setting;
  settings.deletion = env.property(kDeleteProp, "true") == "true";
  return settings;
}
