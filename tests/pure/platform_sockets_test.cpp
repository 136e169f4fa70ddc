// Connecting to local sockets: the exact addresses of each namespace.
#include <cutils/sockets.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stddef.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <string>

#include "base/scoped.h"

namespace {

// A listening socket at exactly these bytes of sun_path.
int listen_at(const std::string& bytes) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  memcpy(address.sun_path, bytes.data(), bytes.size());
  const socklen_t size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + bytes.size());
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (bind(fd, reinterpret_cast<sockaddr*>(&address), size) != 0 || listen(fd, 1) != 0) {
    close(fd);
    return -1;
  }
  return fd;
}

TEST(SocketLocalClient, AbstractNamesAreNotPadded) {
  const std::string name = "platform-test-" + std::to_string(getpid());
  const std::string longest = name + std::string(107 - name.size(), 'x');
  for (const std::string& each : {name, longest}) {
    const scoped_fd server(listen_at(std::string(1, '\0') + each));
    ASSERT_TRUE(server.valid());
    const scoped_fd client(
        socket_local_client(each.c_str(), ANDROID_SOCKET_NAMESPACE_ABSTRACT, SOCK_STREAM));
    ASSERT_TRUE(client.valid()) << strerror(errno);
    EXPECT_EQ(fcntl(client.get(), F_GETFD) & FD_CLOEXEC, 0);
  }
}

TEST(SocketLocalClient, SaysWhyItDoesNotConnect) {
  const struct {
    size_t length;
    int name_space;
    int error;
  } rows[] = {
      {107, ANDROID_SOCKET_NAMESPACE_ABSTRACT, ECONNREFUSED},
      {108, ANDROID_SOCKET_NAMESPACE_ABSTRACT, ENAMETOOLONG},
      {95, ANDROID_SOCKET_NAMESPACE_RESERVED, ENOENT},  // "/dev/socket/" and a NUL take 13
      {96, ANDROID_SOCKET_NAMESPACE_RESERVED, ENAMETOOLONG},
      {107, ANDROID_SOCKET_NAMESPACE_FILESYSTEM, ENOENT},
      {108, ANDROID_SOCKET_NAMESPACE_FILESYSTEM, ENAMETOOLONG},
      {1, 3, EINVAL},
      {1, -1, EINVAL},
  };
  for (const auto& row : rows) {
    const std::string name(row.length, 'q');
    errno = 0;
    EXPECT_EQ(socket_local_client(name.c_str(), row.name_space, SOCK_STREAM), -1);
    EXPECT_EQ(errno, row.error) << row.length << " in " << row.name_space;
  }
}

}  // namespace
