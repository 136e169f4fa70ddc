#include "base/process.h"
#include "catchers/catchers.h"
#include "catchers/type_dir.h"
#include "debuglog/workers.h"
#include "input/touch_recorder.h"
#include "selflog/log.h"

namespace {

constexpr char kLogSource[] = "commands";

}  // namespace

int catcher_tp_log(const char* log_dir, const char* name) {
  LOGD("function invoked");
  char dir[kPathSize];
  make_type_dir(dir, log_dir, name);
  const pid_t pid = fork_worker(__func__);
  if (pid == -1) return -1;
  if (pid == 0) {
    set_process_name(name);
    start_tp_log();
    gettouchlog(dir);
    end_process(0);
  }
  LOGE("fork child process, pid:%d, gettouchlog \n", pid);
  return 0;
}
