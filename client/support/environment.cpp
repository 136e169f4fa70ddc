#include "client/support/environment.h"

#include <cutils/properties.h>
#include <cutils/sockets.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/vfs.h>
#include <unistd.h>

#include "model/paths.h"
#include "protocol/protocol.h"

namespace {

constexpr const char* kProc = "/proc";
constexpr const char* kProperties = "/dev/__properties__";

}  // namespace

bool fill_standard_streams() {
  const bool has_output = fcntl(STDOUT_FILENO, F_GETFD) != -1;
  int fd;
  // Each takes the lowest number that is free.
  while ((fd = open("/dev/null", O_RDWR | O_CLOEXEC)) != -1 && fd <= STDERR_FILENO) {
    fcntl(fd, F_SETFD, 0);  // children inherit the three
  }
  if (fd != -1) close(fd);
  return has_output;
}

Environment phone_environment() {
  Environment env;
  // Non-blocking from the start: a blocking connect would hang for good behind a full backlog.
  env.dial = [] {
    return socket_local_client(kControlSocketName, ANDROID_SOCKET_NAMESPACE_RESERVED,
                               SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC);
  };
  // On a desk, where copied runs are read, there are no properties; the platform's functions for
  // plain Linux end the process outside a bench phone.
  const bool on_phone = access(kProperties, F_OK) == 0;
  env.property = [on_phone](const char* key, const char* fallback) {
    if (!on_phone) return std::string(fallback);
    char value[PROPERTY_VALUE_MAX] = {};
    property_get(key, value, fallback);
    return std::string(value);
  };
  env.space = [](const std::string& path, VolumeSpace* out) {
    struct statfs info;
    if (statfs(path.c_str(), &info) != 0 || info.f_blocks == 0) return false;
    out->block = static_cast<int64_t>(info.f_bsize);
    out->available = out->block * static_cast<int64_t>(info.f_bavail);
    return true;
  };
  env.out = stdout;
  env.err = stderr;
  env.progress = isatty(STDERR_FILENO) == 1;
  env.proc = kProc;
  env.store = kStoreDir;
  env.store.pop_back();  // the slash
  env.working = kWorkingDir;
  env.working.pop_back();
  env.self_log = kSelfLogFile;
  return env;
}
