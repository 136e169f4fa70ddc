#include <cutils/properties.h>
#include <cutils/sockets.h>
#include <errno.h>
#include <fcntl.h>
#include <stdint.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include "base/process.h"
#include "catchers/artefacts.h"
#include "catchers/catchers.h"
#include "debuglog/logger_types.h"
#include "debuglog/workers.h"
#include "model/properties.h"
#include "selflog/log.h"
#include "selflog/props.h"
#include "storage/utils.h"

namespace {

constexpr char kLogSource[] = "commands";
constexpr int kStartCommand = 0;
constexpr int kStopCommand = 2;
constexpr int kAbstractSdk = 28;  // from this release on the service has no socket in /dev/socket
constexpr int kAttempts = 62;     // of 100 ms: about 6.2 s
constexpr int kStepMs = 100;
constexpr int kStopPolls = 60;
constexpr int kKillPauseMs = 1000;

int connect_to_service(int sdk) {
  if (sdk < kAbstractSdk) {
    return socket_local_client("systrace", ANDROID_SOCKET_NAMESPACE_RESERVED, SOCK_SEQPACKET);
  }
  return socket_local_client("systraceur", ANDROID_SOCKET_NAMESPACE_ABSTRACT, SOCK_SEQPACKET);
}

}  // namespace

int sendSystraceSocket(int code) {
  LOGD("function invoked");
  const int sdk = get_int_prop(kSdkProp, 0);
  for (int attempt = 0; attempt < kAttempts; attempt++) {
    const int fd = connect_to_service(sdk);
    if (fd < 0) {
      sleep_ms(kStepMs);
      continue;
    }
    fcntl(fd, F_SETFD, FD_CLOEXEC);
    const auto bits = static_cast<uint32_t>(code);
    const uint8_t message[4] = {static_cast<uint8_t>(bits >> 24), static_cast<uint8_t>(bits >> 16),
                                static_cast<uint8_t>(bits >> 8), static_cast<uint8_t>(bits)};
    const ssize_t ret = write(fd, message, sizeof(message));
    LOGE("ret is %d\n", static_cast<int>(ret));
    sleep_ms(kStepMs);
    return close(fd);
  }
  LOGE("Failed connect to systrace, errno %d", errno);
  end_process(1);
}

int start_systrace_log(const char* /*log_dir*/, const char* name) {
  LOGD("function invoked");
  property_set(kSystraceProp, "1");
  const pid_t pid = fork_worker(__func__);
  if (pid == -1) return -1;
  if (pid == 0) {
    set_process_name(name);
    sendSystraceSocket(kStartCommand);
    LOGD("sendSystraceSocket sucess");
    end_process(0);
  }
  LOGE("fork child process, pid:%d, sendSystraceSocket \n", pid);
  return 0;
}

void stop_systrace_service() {
  const char* name = "stop_systrace_log";
  LOGD_AS(name, "stop systrace log");
  property_set(kSystraceProp, "0");
  delete_dir("/data/anr/systrace/*");
  const pid_t pid = fork_process(Group::kNew);
  if (pid == -1) {
    LOGE_AS(name, "fork err:%s.\n", strerror(errno));
    return;
  }
  if (pid == 0) {
    sendSystraceSocket(kStopCommand);
    LOGD_AS(name, "sendSystraceSocket sucess");
    end_process(0);
  }
  LOGE_AS(name, "fork child process, pid:%d, sendSystraceSocket\n", pid);
  const int polls = await_child(pid, {name, kStepMs, kStopPolls, 0, kKillPauseMs, true, false});
  LOGD_AS(name, "wait child %d to finish wastes %f secs", pid, polls / 10.0);
}

void stop_systrace_log() {
  LOGD("function invoked");
  if (!has_logger_type(kTypeSystrace)) return;
  do_move_traces(nullptr);
  stop_systrace_service();
}
