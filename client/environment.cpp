#include "client/environment.h"

#include <cutils/properties.h>
#include <cutils/sockets.h>
#include <sys/socket.h>
#include <unistd.h>

#include "protocol/protocol.h"

namespace {

constexpr const char* kProc = "/proc";
constexpr const char* kStore = "/sdcard/zelkalog";
constexpr const char* kWorking = "/data/misc/zelkalog";
constexpr const char* kSelfLog = "/data/misc/zelkalog/.logger/harrowmossd.txt";

}  // namespace

environment phone_environment() {
  environment env;
  // Non-blocking from the start: a blocking connect would hang for good behind a full backlog.
  env.dial = [] {
    return socket_local_client(kControlSocketName, ANDROID_SOCKET_NAMESPACE_RESERVED,
                               SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC);
  };
  env.property = [](const char* key, const char* fallback) {
    char value[PROPERTY_VALUE_MAX] = {};
    property_get(key, value, fallback);
    return std::string(value);
  };
  env.out = stdout;
  env.err = stderr;
  env.progress = isatty(STDERR_FILENO) == 1;
  env.proc = kProc;
  env.store = kStore;
  env.working = kWorking;
  env.self_log = kSelfLog;
  return env;
}
