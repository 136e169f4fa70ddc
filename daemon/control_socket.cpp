#include <binder/Parcel.h>
#include <errno.h>
#include <poll.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <iterator>

#include "base/deferred_signals.h"
#include "base/process.h"
#include "base/text_writer.h"
#include "daemon/harrowmoss.h"
#include "protocol/protocol.h"
#include "selflog/log.h"

namespace {

constexpr char kLogSource[] = "harrowmoss";
constexpr int kIoFailed = -2;
constexpr size_t kDumpSize = kDumpTextMax + 1;
constexpr int kAcceptPauseMs = 100;  // a failing accept() must not spin

// Receives the next request. False when the connection is to be ended.
bool receive_request(int fd, android::Parcel* request) {
  uint16_t size = 0;  // both sides are little-endian
  if (readx(fd, &size, sizeof(size)) != 0) {
    LOGE_AS("main", "failed to read size\n");
    return false;
  }
  if (size < 1 || size > kPayloadMax) {
    LOGE_AS("main", "invalid size %d\n", size);
    return false;
  }
  uint8_t payload[kPayloadMax + 1];
  if (readx(fd, payload, size) != 0) {
    LOGE_AS("main", "failed to read command\n");
    return false;
  }
  payload[size] = 0;
  request->setData(payload, size);
  return true;
}

bool send_reply(int fd, const android::Parcel& reply) {
  const auto size = static_cast<int32_t>(reply.dataSize());
  return writex(fd, &size, sizeof(size)) == 0 && writex(fd, reply.data(), size) == 0;
}

}  // namespace

void printSocketData(const char* tag, const void* data, int len) {
  constexpr char kDigits[] = "0123456789abcdef";
  constexpr size_t kByteMost = 3;  // two digits and a dash
  char text[kDumpSize];
  const auto* bytes = static_cast<const uint8_t*>(data);
  TextWriter out(text);
  size_t left = sizeof(text) - 1;
  for (int i = 0; i < len; i++) {
    const size_t size = bytes[i] < 0x10 ? kByteMost - 1 : kByteMost;
    if (size > left) abort();
    left -= size;
    if (bytes[i] >= 0x10) out.put(kDigits[bytes[i] >> 4]);
    out.put(kDigits[bytes[i] & 0xf]);
    out.put('-');
  }
  out.finish();
  LOGD("%s socket data = %s ", tag, text);
}

int readx(int fd, void* buf, int len) {
  for (int done = 0; done < len;) {
    wait_ready(fd, POLLIN);
    const ssize_t got = read(fd, static_cast<char*>(buf) + done, static_cast<size_t>(len - done));
    if (got < 0 && (errno == EINTR || errno == EAGAIN)) continue;
    if (got < 0) {
      LOGE("read error: %s\n", strerror(errno));
      return kIoFailed;
    }
    if (got == 0) {
      LOGE("eof\n");
      return kIoFailed;
    }
    done += static_cast<int>(got);
  }
  printSocketData("read", buf, len);
  return 0;
}

int writex(int fd, const void* buf, int len) {
  printSocketData("write", buf, len);
  if (len < 0) return kIoFailed;
  for (int done = 0; done < len;) {
    const ssize_t put =
        write(fd, static_cast<const char*>(buf) + done, static_cast<size_t>(len - done));
    if (put < 0 && errno == EAGAIN) wait_ready(fd, POLLOUT);
    if (put < 0 && (errno == EINTR || errno == EAGAIN)) continue;
    if (put < 0) {
      LOGE("write error: %s\n", strerror(errno));
      return kIoFailed;
    }
    done += static_cast<int>(put);
  }
  return 0;
}

void execute(const android::Parcel& request, android::Parcel& reply) {
  const int32_t code = request.readInt32();
  const int64_t serial = request.readInt64();
  LOGD("execute: request = %d, serial = %ld.", code, static_cast<long>(serial));
  reply.writeInt32(code);
  reply.writeInt64(serial);
  LOGE("execute: request = %d", code);
  const uint32_t row = static_cast<uint32_t>(code) - 1;
  if (row < std::size(kRequests)) {
    kRequests[row].handler(request, reply);
  } else {
    reply.writeInt32(-1);
    LOGE("execute: ERROR_NOT_SUPORT.");
  }
}

void serve_connection(int fd) {
  set_keepable_fd(fd);
  for (;;) {
    android::Parcel request;
    android::Parcel reply;
    if (!receive_request(fd, &request)) break;
    execute(request, reply);
    if (is_stray_child()) break;  // the main process replies
    safe_point();  // wait_ready() delivers no signal when the next request is already there
    if (!send_reply(fd, reply)) break;
  }
  LOGI_AS("main", "closing connection\n");
  set_keepable_fd(-1);
  close(fd);
  if (is_main_process()) return;
  LOGD_AS("main", "child process %d arrives here,just exit. parent is %d", getpid(), getppid());
  end_process(0);
}

void serve_connections(int listen_fd) {
  for (;;) {
    safe_point();  // wait_ready() delivers no signal when the next client is already there
    wait_ready(listen_fd, POLLIN);
    sockaddr address;
    socklen_t address_size = sizeof(address);  // 16; not used
    const int fd = accept4(listen_fd, &address, &address_size, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (fd < 0) {
      const int error = errno;
      LOGE_AS("main", "Accept failed: %s\n", strerror(error));
      if (error != EINTR && error != ECONNABORTED) sleep_ms(kAcceptPauseMs);
      continue;
    }
    LOGI_AS("main", "new connection\n");
    serve_connection(fd);
  }
}
