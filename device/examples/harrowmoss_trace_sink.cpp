// Example of a trace service: logs the daemon's commands from the abstract socket "systraceur". A
// command is one packet of 4 bytes, a number in network byte order: 0 starts tracing, 2 stops it
// and leaves the trace in /data/local/traces. There is no reply.
#include <android/log.h>
#include <arpa/inet.h>
#include <errno.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

constexpr char kName[] = "systraceur";  // an abstract address: no path, no terminating NUL
constexpr char kTag[] = "harrowmoss_trace_sink";
constexpr int kBacklog = 4;

int listen_here() {
  struct sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  memcpy(address.sun_path + 1, kName, strlen(kName));
  const auto size =
      static_cast<socklen_t>(offsetof(struct sockaddr_un, sun_path) + 1 + strlen(kName));
  const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
  if (fd < 0 || bind(fd, reinterpret_cast<struct sockaddr*>(&address), size) != 0 ||
      listen(fd, kBacklog) != 0) {
    __android_log_print(ANDROID_LOG_ERROR, kTag, "no socket: %s", strerror(errno));
    return -1;
  }
  return fd;
}

void serve(int client) {
  uint32_t command;
  while (recv(client, &command, sizeof(command), 0) == static_cast<ssize_t>(sizeof(command))) {
    __android_log_print(ANDROID_LOG_INFO, kTag, "command %u", ntohl(command));
  }
  close(client);
}

}  // namespace

int main() {
  const int listening = listen_here();
  if (listening < 0) return 1;
  for (;;) {
    const int client = accept4(listening, nullptr, nullptr, SOCK_CLOEXEC);
    if (client >= 0) {
      serve(client);
    } else if (errno != EINTR && errno != ECONNABORTED) {
      return 1;  // init restarts it
    }
  }
}
