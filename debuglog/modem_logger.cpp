#include "debuglog/modem_logger.h"

#include <cutils/properties.h>
#include <string.h>

#include "base/text.h"
#include "selflog/log.h"
#include "selflog/props.h"

namespace {

constexpr char kLogSource[] = "commands";
constexpr char kLegacyModel[] = "QZ101A";  // not its variants
constexpr const char* kLegacyModelPrefixes[] = {"QZ102A", "QZ103A", "QZ104A"};

bool is_legacy_model(const char* model) {
  if (strcmp(model, kLegacyModel) == 0) return true;
  for (const char* prefix : kLegacyModelPrefixes) {
    if (starts_with(model, prefix)) return true;
  }
  return false;
}

}  // namespace

bool is_legacy_diag_mdlog() {
  char model[PROPERTY_VALUE_MAX] = {};  // no allocation: called in the watchdog's signal handler
  property_get("ro.product.model", model, "");
  const bool legacy =
      is_legacy_model(model) || get_int_prop("persist.sys.zelka.diag_mdlog_use_legacy", 0) == 1;
  LOGV("product_model=%s ,legacy=%d", model, legacy);
  return legacy;
}

void stop_modem_log() {
  const char* state_prop = is_legacy_diag_mdlog() ? kLegacyModemStateProp : kModemStateProp;
  char state[PROPERTY_VALUE_MAX] = {};
  property_get(state_prop, state, "0");
  LOGD("function invoked, diag_mdlog_state=%s", state);
  if (strcmp(state, "1") != 0) return;
  LOGE("stop catch modem log");
  property_set(state_prop, "0");
}
