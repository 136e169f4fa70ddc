#include <errno.h>
#include <string.h>

#include "base/process.h"
#include "base/text.h"
#include "capture/workers.h"
#include "catchers/catchers.h"
#include "input/touch_recorder.h"
#include "selflog/log.h"
#include "storage/utils.h"

namespace {

constexpr char kLogSource[] = "commands";

}  // namespace

int catcher_tp_log(const char* log_dir, const char* name) {
  LOGD("function invoked");
  char dir[256] = {};
  copy_or_abort(dir, log_dir);
  append_or_abort(dir, "/");
  append_or_abort(dir, name);
  creat_dir(dir);
  const pid_t pid = fork_process(group::own);
  if (pid == -1) {
    LOGE("fork err:%s.\n", strerror(errno));
    return -1;
  }
  if (pid == 0) {
    set_process_name(name);
    start_tp_log();
    gettouchlog(dir);
    end_process(0);
  }
  add_to_debug_group(pid);
  LOGE("fork child process, pid:%d, gettouchlog \n", pid);
  return 0;
}
