#include "debuglog/vendor_moves.h"

#include <cutils/properties.h>
#include <time.h>

#include "selflog/log.h"

int64_t s_vendor_mv_start_secs = 0;

namespace {

constexpr char kLogSource[] = "commands";
constexpr char kMoveProp[] = "sys.zelka.harrowmossd.action.mv_vendor_common_logs";

}  // namespace

void do_move_vendor_logs() {
  LOGD("function invoked");
  property_set(kMoveProp, "1");
  s_vendor_mv_start_secs = time(nullptr);
}
