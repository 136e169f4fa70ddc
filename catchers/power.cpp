#include <cutils/properties.h>
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include "base/process.h"
#include "base/scoped.h"
#include "base/text.h"
#include "catchers/catchers.h"
#include "catchers/type_dir.h"
#include "debuglog/logger_types.h"
#include "debuglog/workers.h"
#include "model/paths.h"
#include "selflog/log.h"
#include "selflog/props.h"
#include "storage/shell.h"
#include "storage/utils.h"

namespace {

constexpr char kLogSource[] = "commands";
constexpr char kPowerSwitch[] = "/sys/zelka_power_debug/enable";
constexpr char kPowerSaveProp[] = "persist.service.powersave.logs";

// Some models do not have the kernel's switch.
void write_power_switch(const char* digit) {
  ScopedFd fd(open(kPowerSwitch, O_RDWR | O_CLOEXEC));
  if (fd.valid()) (void)!write(fd.get(), digit, 1);
}

// The fuel-gauge worker's body.
[[noreturn]] void run_fg_script(const ShellText& command) {
  set_process_name("fg");
  LOGD_AS("catcher_fg_log", "execute fg log pid %d  \n", getpid());
  const int rc = run_shell(command);
  if (rc != 0) {
    LOGE_AS("catcher_fg_log", "execute fg log process %d, err: %s\n", rc, strerror(errno));
  }
  end_process(0);
}

void catcher_fg_log(const char* log_dir) {
  LOGD("function invoked");
  char dir[kPathSize];
  make_type_dir(dir, log_dir, "fg");
  // No slash in front: the shell is found from the daemon's working directory, which is "/".
  const ShellText command = ShellText("system/bin/sh ").arg(kFuelGaugeScript).target(dir);
  const pid_t pid = fork_worker(__func__);
  if (pid == -1) return;
  if (pid == 0) run_fg_script(command);
  fg_log_pid = pid;
  LOGE("fork child process, pid:%d, system: %s \n", pid, command.c_str());
}

// Runs `script` with the run's directory and its power directory, which is made first.
void run_power_script(const char* script, const char* log_dir, const char* name) {
  char dir[kPathSize];
  format_cut(dir, "%s/%s", log_dir, name);
  creat_dir(dir);
  run_tool(ShellText(kShell).arg(script).target(log_dir).target(dir));
}

}  // namespace

int start_power_log(const char* log_dir, const char* name) {
  LOGD("function invoked");
  write_power_switch("1");
  property_set(kPowerSaveProp, "1");
  catcher_fg_log(log_dir);
  run_tool("dumpsys power");
  run_tool("dumpsys alarm");
  run_power_script(kPowerStartScript, log_dir, name);
  return 0;
}

void stop_power_log(const char* log_dir) {
  LOGD("function invoked");
  if (!has_logger_type(kTypePower)) return;
  LOGD("stop power log");
  property_set(kPowerSaveProp, "0");
  run_power_script(kPowerStopScript, log_dir, "power");
  write_power_switch("0");
}
