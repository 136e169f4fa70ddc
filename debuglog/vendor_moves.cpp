#include "debuglog/vendor_moves.h"

#include <cutils/properties.h>
#include <time.h>

#include "base/deferred_signals.h"
#include "base/process.h"
#include "selflog/log.h"
#include "selflog/props.h"

int64_t s_vendor_mv_start_secs = 0;

namespace {

constexpr char kLogSource[] = "commands";
constexpr char kMoveProp[] = "sys.zelka.harrowmossd.action.mv_vendor_common_logs";
constexpr int kPollMs = 100;
constexpr int kLongPolls = 300;  // warn from here on
constexpr int kModemOrWifiSeconds = 15;
constexpr int kSeconds = 2;

}  // namespace

void do_move_vendor_logs() {
  LOGD("function invoked");
  property_set(kMoveProp, "1");
  s_vendor_mv_start_secs = time(nullptr);
}

int wait_vendor_mv_action_done(const char* done_property, int polls) {
  if (polls < 1) return 0;
  if (polls >= kLongPolls) LOGW("maybe too long timeout %d", polls);
  int made = 0;
  for (; get_int_prop(done_property, 0) == 0; made++) {
    if (made == polls) {
      LOGW("wait prop %s timeout.", done_property);
      return 0;
    }
    sleep_ms(kPollMs);
    safe_point();
  }
  LOGI("wait prop %s done for %fs.", done_property, static_cast<double>(made) / 10.0);
  return 1;
}

int calc_vendor_mv_actions_timeout(int64_t start, int64_t now, bool modem_or_wifi) {
  const int64_t wasted = now > start ? now - start : 0;
  LOGD("start_secs=%ld, now=%ld, wasted=%lds", static_cast<long>(start), static_cast<long>(now),
       static_cast<long>(wasted));
  const int64_t left = (modem_or_wifi ? kModemOrWifiSeconds : kSeconds) - wasted;
  return left > 0 ? static_cast<int>(left) : 0;
}
