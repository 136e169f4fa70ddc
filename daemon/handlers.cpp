#include <binder/Parcel.h>
#include <cutils/properties.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <memory>

#include "base/text.h"
#include "catchers/watchdog.h"
#include "daemon/harrowmoss.h"
#include "debuglog/commands.h"
#include "debuglog/run.h"
#include "debuglog/settings.h"
#include "feedback/feedback.h"
#include "model/paths.h"
#include "model/properties.h"
#include "protocol/protocol.h"
#include "selflog/log.h"
#include "selflog/props.h"
#include "storage/linked_move.h"
#include "storage/size_monitor.h"
#include "storage/store.h"
#include "storage/tree.h"
#include "storage/utils.h"

namespace {

constexpr char kLogSource[] = "harrowmoss";
constexpr char kMediaTraceDir[] = "/data/media/0/zelkalog/traces";
constexpr char kFeedbackBaseDir[] = "/sdcard/Android/data/.harrowmoss/";

struct FreeText {
  void operator()(char* text) const { free(text); }
};
using RequestText = std::unique_ptr<char, FreeText>;

// The next String16 of a request; null when it is null or broken.
RequestText read_text(const android::Parcel& request) {
  size_t units = 0;
  const char16_t* text = request.readString16Inplace(&units);
  return RequestText(strndup16to8(text, units));
}

const char* shown(const RequestText& text) {
  return text == nullptr ? "(null)" : text.get();
}

// False, after one error line, unless `fault` is null. Makes the parent directory of an accepted
// destination.
bool destination_ok(const RequestText& path, const char* fault) {
  if (fault != nullptr) {
    LOGE("destination refused, %s: %s", fault, shown(path));
    return false;
  }
  creat_dir(split(path.get()).directory.c_str());
  return true;
}

// Writes an int32 length and the text.
void write_text(android::Parcel& reply, const char* text) {
  reply.writeInt32(static_cast<int32_t>(strlen(text)));
  reply.writeCString(text);
}

int write_result(android::Parcel& reply, const char* function, int ret) {
  LOGD_AS(function, "ret: %d.", ret);
  reply.writeInt32(ret);
  return ret;
}

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
  LOGD("s_logsize_monitor is :%d", s_logsize_monitor.load());
  if (!s_logsize_monitor) {
    LOGD("checkLogSize");
    checkLogSize();
  }
  return write_result(reply, __func__, ret);
}

int do_stop_debug_log(const android::Parcel&, android::Parcel& reply) {
  LOGD("function invoked");
  property_set(kEnableProp, "off");  // first: the stop and the size monitor read it
  stop_log_size_monitor();
  return write_result(reply, __func__, stop_debug_log());
}

int do_feedback_log(const android::Parcel&, android::Parcel&) {
  return 0;
}

int do_get_feedback_log(const android::Parcel& request, android::Parcel& reply) {
  LOGD("function invoked");
  const int32_t types = request.readInt32();
  const RequestText path = read_text(request);
  request.readInt32();  // sent by the app, not used
  if (creat_dir(kFeedbackBaseDir) < 0) {
    LOGD("error in create feedback base dir %s", kFeedbackBaseDir);
    return -1;
  }
  LOGD("types: %d, path: %s.", types, shown(path));
  const bool ok = destination_ok(path, feedback_destination_fault(types, path.get()));
  return write_result(reply, __func__, ok ? get_feedback_log(types, path.get()) : -1);
}

int do_get_build_state(const android::Parcel&, android::Parcel& reply) {
  LOGD("function invoked");
  const int state = getBuildState();
  reply.writeInt32(state);
  return state;
}

int do_no_service_catch_modem(const android::Parcel&, android::Parcel& reply) {
  return write_result(reply, __func__, no_service_catch_modem_log());
}

int do_get_pstore_dir(const android::Parcel&, android::Parcel& reply) {
  LOGD("function invoked");
  const std::string name = current_run_name();
  LOGD("function invoked, %s,strlen(psstoredir=%lu)\n", name.c_str(),
       static_cast<unsigned long>(name.size()));
  write_text(reply, name.c_str());
  return 0;
}

int do_get_system_mount_size(const android::Parcel&, android::Parcel& reply) {
  char size[PROPERTY_VALUE_MAX];
  format_cut(size, "%lld", static_cast<long long>(get_mount_used_size("/system")));
  LOGD("function invoked, %s,strlen(systemsize=%lu)\n", size,
       static_cast<unsigned long>(strlen(size)));
  write_text(reply, size);
  return 0;
}

int do_get_build_id(const android::Parcel&, android::Parcel& reply) {
  char id[PROPERTY_VALUE_MAX] = {};
  getBuildID(id);
  LOGD("function invoked, %s ,strlen(buildid=%lu)\n", id, static_cast<unsigned long>(strlen(id)));
  write_text(reply, id);
  return 0;
}

int do_del_log(const android::Parcel&, android::Parcel&) {
  LOGD("function invoked");
  property_set(kSequenceProp, "0");
  delete_dir(kStoreContents);
  delete_dir(kAnrDir);
  delete_dir(kWorkingContents);
  delete_dir(kVendorContents);
  remove_move_trees(kWorkingDir, nullptr);
  return 0;
}

int do_move_trace(const android::Parcel&, android::Parcel&) {
  LOGD("function invoked");
  create_store_dir_if_needed();
  if (is_dir_exist(kStoreTraceDir) != 0) creat_dir(kStoreTraceDir);
  if (is_dir_exist(kMediaTraceDir) != 0) {
    LOGD("create traces dir");
    creat_dir(kMediaTraceDir);
  }
  move_dir(kTraceContents, kStoreTraceDir, nullptr);
  return 0;
}

int do_copy_sys_trace_log(const android::Parcel& request, android::Parcel& reply) {
  LOGD("function invoked");
  const RequestText path = read_text(request);
  LOGD("path: %s.", shown(path));
  LOGD_AS("do_copy_systrace", "function invoked");
  const bool fits = command_fits(ShellCommand::kCopyDir, kTraceDir, path.get());
  const bool ok = destination_ok(path, destination_fault(path.get(), {kTraceDir}, fits));
  if (ok) copy_dir(kTraceDir, path.get());
  return write_result(reply, __func__, 0);
}

int do_copy_kernel_pmic(const android::Parcel& request, android::Parcel& reply) {
  LOGD("function invoked");
  const RequestText path = read_text(request);
  LOGD("path: %s.", shown(path));
  if (access(kKernelLog, F_OK) != 0) {
    LOGE("pmic_file does not exist: %s.", kKernelLog);
    return -1;
  }
  const bool fits = command_fits(ShellCommand::kCopyDir2, kKernelLog, path.get());
  const bool ok = destination_ok(path, destination_fault(path.get(), {}, fits));
  return write_result(reply, __func__, ok ? copy_dir2(kKernelLog, path.get()) : -1);
}

int do_get_boot_reason(const android::Parcel&, android::Parcel& reply) {
  constexpr char kReasonProp[] = "sys.boot.reason";
  char props[256];
  format_cut(props, "%s:[%s]\n%s:[%s]", kRebootProp, get_string_prop(kRebootProp, "").c_str(),
             kReasonProp, get_string_prop(kReasonProp, "").c_str());
  LOGE("function invoked, %s ,strlen(props=%lu)", props, static_cast<unsigned long>(strlen(props)));
  write_text(reply, props);
  return 0;
}

}  // namespace

// clang-format off
constexpr RequestRow kRequests[kRequestCount] = {
    { 1, do_get_version},
    { 2, do_start_debug_log},
    { 3, do_stop_debug_log},
    { 4, do_feedback_log},             // start: nothing to do, kept for the app
    { 5, do_feedback_log},             // stop
    { 6, do_get_feedback_log},
    { 7, do_get_build_state},
    { 8, do_no_service_catch_modem},
    { 9, do_get_pstore_dir},
    {10, do_get_system_mount_size},
    {11, do_get_build_id},
    {12, do_del_log},
    {13, do_move_trace},
    {14, do_copy_sys_trace_log},
    {15, do_copy_kernel_pmic},
    {16, do_get_boot_reason},
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
