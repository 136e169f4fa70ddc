#include "client/support/settings.h"

#include <limits.h>
#include <stdlib.h>

#include "base/text.h"
#include "model/eviction.h"
#include "model/properties.h"

LoggingSettings read_settings(const Environment& env) {
  LoggingSettings settings;
  settings.logging = starts_with(env.property(kEnableProp, "off").c_str(), "on");
  settings.types = atoi(env.property(kTypeProp, "1").c_str());
  settings.store_path = env.property(kStorePathProp, "");
  settings.run_name = settings.store_path.substr(settings.store_path.find_last_of('/') + 1);
  settings.quota_setting = read_count(env.property(kQuotaProp, ""), INT_MAX, kDefaultQuotaGib);
  settings.quota_mib = quota_mib(settings.quota_setting, shrinks_quota(settings.types));
  settings.deletion = env.property(kDeleteProp, "true") == "true";
  return settings;
}
