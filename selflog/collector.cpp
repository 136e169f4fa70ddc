#include <cutils/properties.h>
#include <errno.h>
#include <pthread.h>
#include <string.h>
#include <unistd.h>

#include "base/process.h"
#include "base/scoped.h"
#include "base/text.h"
#include "base/thread.h"
#include "selflog/log.h"
#include "selflog/props.h"
#include "selflog/self_logger.h"

namespace {

constexpr char kLogSource[] = "utils";
constexpr char kLogcat[] = "/system/bin/logcat";
constexpr char kOwnTags[] = "Harrowmoss harrowmoss harrowmossd";  // the app's, older ones, ours

// A collector runs, in this process or, inherited by the size monitor, in the main one.
std::atomic<bool> s_collecting{false};

// One collector may run: a second one would write the same file and hide the first one's pid.
bool claim_collector() {
  bool expected = false;
  return s_collecting.compare_exchange_strong(expected, true);
}

[[noreturn]] void become_collector() {
  LOG_AS(ANDROID_LOG_DEBUG, "collectSelfLog", "start collect self log %s", kCollectorFile);
  const int ret =
      execlp(kLogcat, "harrowmossd:SLC", "-v", "threadtime,usec", "-s", kOwnTags, "-b", "main",
             "-f", kCollectorFile, "-r", "10240", "-n", "2", static_cast<char*>(nullptr));
  LOG_AS(ANDROID_LOG_ERROR, "collectSelfLog", "exec ret: %d, err: %s\n", ret, strerror(errno));
  sleep_ms(2000);
  end_process(0);
}

}  // namespace

int loggersystem::startSelfLogCollector(std::atomic<int32_t>* pid) {
  if (!is_prop_on("persist.sys.logger.enable", "off")) {
    ALOG(ANDROID_LOG_WARN, "not enabled self logger");
    return -1;
  }
  // One that still waits for its logcat is good for the next run too.
  if (!claim_collector()) return -1;
  const int result = start_thread(collectSelfLog, pid);
  if (result != 0) s_collecting = false;
  if (result < 0) {
    ALOG(ANDROID_LOG_ERROR, "create collect self log thread fail, error=%s\n", strerror(errno));
  }
  return result == 0 ? 0 : -1;
}

void* loggersystem::collectSelfLog(void* arg) {
  auto* pid = static_cast<std::atomic<int32_t>*>(arg);
  for (;;) {
    *pid = 0;
    if (!scoped_dir(opendir(kSelfLogDir)).valid() && logger_mkdir(kSelfLogDir) != 0) {
      LOGD("logger cannot create file:%s", kSelfLogDir);
      sleep_ms(3000);
      continue;
    }
    const pid_t child = fork_process(group::own);
    if (child == -1) {
      LOGE("fork err:%s.\n", strerror(errno));
      sleep_ms(2000);
      continue;
    }
    if (child == 0) become_collector();
    *pid = child;
    LOGD("fork child process, pid:%d", child);
    wait_for(child, nullptr);
    LOGE("waitpid %d finished", child);
    if (is_logger_enabled()) continue;
    LOGW("logger stopoped, exit");
    s_collecting = false;
    // A start that came in between found this thread still claiming the collector.
    if (!is_logger_enabled() || !claim_collector()) return nullptr;
  }
}
