#include <cutils/properties.h>
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include <string>

#include "base/process.h"
#include "base/scoped.h"
#include "base/text.h"
#include "catchers/app_files.h"
#include "catchers/catchers.h"
#include "catchers/type_dir.h"
#include "debuglog/logcat.h"
#include "debuglog/workers.h"
#include "feedback/feedback.h"
#include "model/log_buffers.h"
#include "model/paths.h"
#include "model/process_names.h"
#include "model/properties.h"
#include "selflog/log.h"
#include "selflog/props.h"
#include "storage/shell.h"
#include "storage/utils.h"

namespace {

constexpr char kLogSource[] = "commands";
constexpr size_t kOptionBytes = 512;  // read from the option file
constexpr int kKernelBufferSdk = 23;  // the log daemon has a kernel buffer from this release on
constexpr char kQmiMsgProp[] = "persist.odm.zklog.qmimsg.enable";

void start_logcats(const char* dir) {
  const bool has_kernel_buffer = get_int_prop(kSdkProp, 0) >= kKernelBufferSdk;
  for (const char* buffer : kLogBuffers) {
    if (has_kernel_buffer || strcmp(buffer, "kernel") != 0) catcher_logcat_log(buffer, dir, 1);
  }
}

void load_logcat_file_count() {
  s_logcat_file_count = get_int_prop(kLogcatFileCountProp, kDefaultLogcatFileCount);
  if (s_logcat_file_count >= 0) return;
  s_logcat_file_count = kDefaultLogcatFileCount;
  property_set(kLogcatFileCountProp, "9");
}

// Option "watch_fd": a platform script that lists open descriptors until it is killed.
void catcher_watch_fd_log(const char* dir) {
  LOGD("function invoked");
  char fd_dir[kPathSize] = {};
  copy_or_abort(fd_dir, dir);
  append_or_abort(fd_dir, "/fd");
  creat_dir(fd_dir);
  const ShellText command = ShellText("/system/bin/sh /system/etc/watch_fd.sh >")
                                .target(std::string(fd_dir) + "/fd_log.txt");
  const pid_t pid = fork_process_keeping_fd(Group::kNew);
  if (pid == 0) {
    exec_shell(kShell, kMobileShell, command);
    return;  // there is no shell: goes on as a stray child
  }
  if (pid == -1) {
    LOGE("watch fd fork err:%s.", strerror(errno));
    watch_fd_pid = 0;
    return;
  }
  add_to_debug_group(pid);
  watch_fd_pid = pid;
  LOGE("fork child process, pid:%d, /system/bin/sh debug/vesk -c %s \n", pid, command.c_str());
}

// Option "qmi_msg": the modem's control messages in the kernel log.
void enable_qmi_messages(const char*) {
  property_set(kQmiMsgProp, "1");
  run_shell("echo 0x2 > /sys/module/ipc_router_core/parameters/debug_mask");
}

struct MobileOption {
  const char* begins_with;
  void (*apply)(const char* dir);
};
constexpr MobileOption kOptions[] = {
    {"qmi_msg", enable_qmi_messages},
    {"watch_fd", catcher_watch_fd_log},
};

// The app's option file: only its first bytes count, and the first option that fits. O_NONBLOCK:
// shared storage may have a FIFO of that name.
void handle_mobile_cfg(const char* dir) {
  ScopedFd fd(open(kMobileCfg, O_RDWR | O_NONBLOCK | O_CLOEXEC));
  if (!fd.valid()) {
    LOGE("open file %s failed ! %s\n", kMobileCfg, strerror(errno));
    return;
  }
  char text[kOptionBytes + 1] = {};
  const ssize_t size = read(fd.get(), text, kOptionBytes);
  fd.reset();
  if (size < 0) {
    LOGE("read file %s failed ! %s\n", kMobileCfg, strerror(errno));
    return;
  }
  for (const MobileOption& option : kOptions) {
    if (!starts_with(text, option.begins_with)) continue;
    option.apply(dir);
    return;
  }
}

}  // namespace

int catcher_mobile_log(const char* log_dir, const char* name) {
  LOGD("function invoked");
  char dir[kPathSize];
  make_type_dir(dir, log_dir, name);
  load_logcat_file_count();
  start_logcats(dir);
  get_logcat_control_message(dir);
  copy_system_propertie(log_dir, "");
  property_set(kQmiMsgProp, "0");
  handle_mobile_cfg(dir);
  return start_router_log();
}
