#include <binder/Parcel.h>
#include <cutils/properties.h>
#include <signal.h>
#include <string.h>

#include "base/process.h"
#include "base/text.h"
#include "capture/run.h"
#include "daemon/harrowmoss.h"
#include "debuglog/commands.h"
#include "protocol/protocol.h"
#include "selflog/log.h"
#include "selflog/props.h"

namespace {

constexpr char kLogSource[] = "harrowmoss";

int do_get_version(const android::Parcel&, android::Parcel& reply) {
  LOGD("function invoked");
  reply.writeInt32(kProtocolVersion);
  return 0;
}

int do_start_debug_log(const android::Parcel& request, android::Parcel& reply) {
  LOGD("function invoked");
  const int32_t types = request.readInt32();
  if (is_logger_enabled()) {
    const int32_t current = get_logger_types();
    LOGW("current logger is enabled! types=%d, req types=%d", current, types);
    if (current == types) {
      LOGW("logger types no change, just return.");
      return 0;
    }
    LOGW("request start logger with types changed, stop current first.");
    stop_debug_log();
  }
  char text[PROPERTY_VALUE_MAX];
  format_cut(text, "%d", types);
  property_set(kTypeProp, text);
  property_set(kEnableProp, "on");
  const int ret = start_debug_log();
  LOGD("ret: %d.", ret);
  reply.writeInt32(ret);
  return ret;
}

int do_stop_debug_log(const android::Parcel&, android::Parcel& reply) {
  LOGD("function invoked");
  property_set(kEnableProp, "off");  // first: the stop and the size monitor look at it
  const int ret = stop_debug_log();
  LOGD("ret: %d.", ret);
  reply.writeInt32(ret);
  return ret;
}

int do_feedback_log(const android::Parcel&, android::Parcel&) {
  return 0;
}

int do_get_pstore_dir(const android::Parcel&, android::Parcel& reply) {
  const size_t length = strlen(s_log_dir_name);
  LOGD("function invoked, %s,strlen(psstoredir=%lu)\n", s_log_dir_name,
       static_cast<unsigned long>(length));
  reply.writeInt32(static_cast<int32_t>(length));
  reply.writeCString(s_log_dir_name);
  return 0;
}

// Requests whose work is still to be written. A reply that ends after the serial carries no result.
int do_nothing_yet(const android::Parcel&, android::Parcel&) {
  LOGE("request is not built yet");
  return 0;
}

}  // namespace

// clang-format off
constexpr request_row kRequests[kRequestCount] = {
    { 1, do_get_version},
    { 2, do_start_debug_log},
    { 3, do_stop_debug_log},
    { 4, do_feedback_log},
    { 5, do_feedback_log},
    { 6, do_nothing_yet},
    { 7, do_nothing_yet},
    { 8, do_nothing_yet},
    { 9, do_get_pstore_dir},
    {10, do_nothing_yet},
    {11, do_nothing_yet},
    {12, do_nothing_yet},
    {13, do_nothing_yet},
    {14, do_nothing_yet},
    {15, do_nothing_yet},
    {16, do_nothing_yet},
};
// clang-format on

namespace {

constexpr bool codes_are_row_numbers() {
  for (int i = 0; i < kRequestCount; i++) {
    if (kRequests[i].code != i + 1) return false;
  }
  return true;
}
static_assert(codes_are_row_numbers(), "the dispatcher indexes the table by code");

}  // namespace
