#include "catchers/fingerprint.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <atomic>

#include "base/process.h"
#include "base/text.h"
#include "catchers/catchers.h"
#include "catchers/type_dir.h"
#include "debuglog/run.h"
#include "debuglog/workers.h"
#include "model/process_names.h"
#include "selflog/log.h"
#include "selflog/props.h"
#include "storage/shell.h"
#include "storage/utils.h"

namespace {

constexpr char kLogSource[] = "commands";
constexpr char kSecureWorldLog[] = "/d/tzdbg/qsee_log";
constexpr char kTrustZoneLog[] = "/d/tzdbg/log";

// The type's name, a constant, once it was started. For the rotation thread, which takes the run's
// name from the shared page.
std::atomic<const char*> s_type_name{nullptr};

// Starts one copier of `source` to the end of <out_dir>/<file_name>. Its pid, or -1.
pid_t get_fingerprint_log(const char* out_dir, const char* source, const char* file_name) {
  char path[4096];
  format_cut(path, "%s/%s", out_dir, file_name);
  LOGD("%s, out:%s", source, out_dir);
  const ShellText command = ShellText("cat").arg(source).raw(" >>").target(path);
  const pid_t pid = fork_process(Group::kNew);
  if (pid == -1) {
    LOGE("fork err:%s.\n", strerror(errno));
    return -1;
  }
  if (pid == 0) {
    LOGE("command=%s,getpid=%d", command.c_str(), getpid());
    exec_shell("sh", kFingerprintShell, command);
    perror("execlp error");
    end_process(0);
  }
  LOGE("fork child process, pid:%d, sh -c %s \n", pid, command.c_str());
  add_to_debug_group(pid);
  if (strcmp(source, kSecureWorldLog) == 0) {
    qsee_log_pid = pid;
    LOGD("save qsee, %s, out:%s ", source, out_dir);
  } else if (strcmp(source, kTrustZoneLog) == 0) {
    bsp_log_pid = pid;
    LOGD("save bsp, %s, out:%s", source, out_dir);
  }
  return pid;
}

}  // namespace

int catcher_fp_log(const char* log_dir, const char* name) {
  LOGD("function invoked, parent:%s, self:%s", log_dir, name);
  char dir[kPathSize];
  make_type_dir(dir, log_dir, name);
  set_fingerprint_log_dir(name);
  get_fingerprint_log(dir, kSecureWorldLog, "qsee_log.txt");
  if (is_prop_on("persist.sys.zklog.tzbsp.enable", "off")) {
    get_fingerprint_log(dir, kTrustZoneLog, "tzbsp.txt");
  }
  return 0;
}

std::string fingerprint_log_dir() {
  const char* type_name = s_type_name.load();
  if (type_name == nullptr) return "";
  return std::string(kWorkingDir) + current_run_name() + "/" + type_name;
}

void set_fingerprint_log_dir(const char* name) {
  s_type_name = name;
}
