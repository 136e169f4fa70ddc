#include <cutils/sockets.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stddef.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "base/scoped.h"
#include "platform/linux/bench_phone.h"

namespace {

constexpr char kSocketDirectory[] = "/dev/socket/";
constexpr char kVariablePrefix[] = "ANDROID_SOCKET_";
constexpr size_t kPathMax = sizeof(sockaddr_un::sun_path);

bool plain(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

// The descriptor number in ANDROID_SOCKET_<name>, or -1.
int descriptor_from_environment(const char* name) {
  char variable[sizeof(kVariablePrefix) + kPathMax];
  const size_t prefix = strlen(kVariablePrefix);
  const size_t length = strlen(name);
  if (length >= kPathMax) return -1;  // no socket can have such a path
  memcpy(variable, kVariablePrefix, prefix);
  for (size_t i = 0; i <= length; i++) {
    variable[prefix + i] = name[i] == '\0' || plain(name[i]) ? name[i] : '_';
  }
  const char* text = getenv(variable);
  if (text == nullptr || *text == '\0') return -1;
  char* end = nullptr;
  errno = 0;
  const long fd = strtol(text, &end, 10);
  return errno != 0 || *end != '\0' || fd < 0 || fd > INT_MAX ? -1 : static_cast<int>(fd);
}

// The address of `name` and its exact length; 0 with errno when there is none. Abstract names are
// not padded: the peer is found only under the very same bytes.
socklen_t make_address(const char* name, int namespace_id, sockaddr_un* address) {
  const size_t base = offsetof(sockaddr_un, sun_path);
  const size_t length = strlen(name);
  const char* prefix = "";
  size_t start = 0;
  switch (namespace_id) {
    case ANDROID_SOCKET_NAMESPACE_ABSTRACT:
      start = 1;  // the leading NUL that marks the namespace; no NUL at the end
      break;
    case ANDROID_SOCKET_NAMESPACE_RESERVED:
      prefix = kSocketDirectory;
      start = strlen(prefix);
      break;
    case ANDROID_SOCKET_NAMESPACE_FILESYSTEM:
      break;
    default:
      errno = EINVAL;
      return 0;
  }
  const bool abstract = namespace_id == ANDROID_SOCKET_NAMESPACE_ABSTRACT;
  const size_t total = start + length + (abstract ? 0 : 1);
  if (total > kPathMax) {
    errno = ENAMETOOLONG;
    return 0;
  }
  memset(address, 0, sizeof(*address));
  address->sun_family = AF_UNIX;
  memcpy(address->sun_path, prefix, strlen(prefix));
  memcpy(address->sun_path + start, name, length);
  return static_cast<socklen_t>(base + total);
}

}  // namespace

int android_get_control_socket(const char* name) {
  require_bench_phone();
  if (name == nullptr) return -1;
  const int fd = descriptor_from_environment(name);
  if (fd < 0) return -1;

  sockaddr_un expected;
  sockaddr_un bound = {};
  socklen_t size = sizeof(bound);
  if (make_address(name, ANDROID_SOCKET_NAMESPACE_RESERVED, &expected) == 0) return -1;
  if (getsockname(fd, reinterpret_cast<sockaddr*>(&bound), &size) != 0) return -1;
  if (bound.sun_family != AF_UNIX) return -1;
  return strncmp(bound.sun_path, expected.sun_path, kPathMax) == 0 ? fd : -1;
}

int socket_local_client(const char* name, int namespaceId, int type) {
  sockaddr_un address;
  const socklen_t size = make_address(name, namespaceId, &address);
  if (size == 0) return -1;
  ScopedFd fd(socket(AF_UNIX, type, 0));  // the platform's callers expect it to survive exec
  if (!fd.valid()) return -1;
  if (connect(fd.get(), reinterpret_cast<sockaddr*>(&address), size) != 0) return -1;
  return fd.release();
}
