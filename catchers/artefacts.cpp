#include "catchers/artefacts.h"

#include <stdint.h>
#include <stdio.h>

#include "feedback/feedback.h"
#include "model/paths.h"
#include "selflog/log.h"
#include "selflog/props.h"
#include "storage/utils.h"

namespace {

constexpr char kLogSource[] = "commands";
constexpr char kMinidumpDir[] = "/sdcard/zelkalog/minidump";
constexpr char kHiddenMinidumpDir[] = "/sdcard/zelkalog/.minidump";  // the vendor stages here
constexpr int64_t kMinidumpBytes = 512 * 1024;                       // published only above
constexpr char kHeapdumpDir[] = "/sdcard/Documents/oom";
constexpr int64_t kHeapdumpBytes = 64 * 1024;  // moved only above
constexpr char kWorkingTraceDir[] = "/data/misc/zelkalog/traces";

}  // namespace

void copy_minidump_if_needed() {
  const bool has_minidump = get_int_prop("vendor.harrowmossd.minidump.status", 0) == 1;
  LOGD("function invoked. has_minidump %d", has_minidump);
  if (has_minidump) get_minidump_log(kMinidumpDir);
  if (is_dir_exist(kHiddenMinidumpDir) != 0) return;
  if (getFileSize(kHiddenMinidumpDir) <= kMinidumpBytes) return;
  if (is_dir_exist(kMinidumpDir) == 0) {
    delete_dir(kMinidumpDir);
    LOGI("delete old minidump log");
  }
  creat_dir(kMinidumpDir);
  if (is_trap(kMinidumpDir)) return;
  const int ret = rename(kHiddenMinidumpDir, kMinidumpDir);
  LOGD("rename minidump_path_hide=%s, minidump_path=%s %d", kHiddenMinidumpDir, kMinidumpDir, ret);
}

void copy_apps_oom_heapdump() {
  LOGD("function invoked");
  if (is_dir_exist(kHeapdumpDir) == 0 && getFileSize(kHeapdumpDir) > kHeapdumpBytes) {
    move_dir(kHeapdumpDir, kStoreDir, nullptr);
    LOGD("cp apps heapdump end");
  } else {
    LOGD("no heapdump found");
  }
}

void do_move_traces(const char* /*ignored*/) {
  LOGD("function invoked");
  if (mkdir_s(kStoreTraceDir) == 1) {
    move_dir(kTraceContents, kStoreTraceDir, nullptr);
    LOGD("done moving traces.");
  } else if (mkdir_s(kWorkingTraceDir) == 1) {
    move_dir(kTraceContents, kWorkingTraceDir, nullptr);
    LOGD("done moving traces..");
  }
}
