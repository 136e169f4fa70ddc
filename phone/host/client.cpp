#include "phone/host/client.h"

#include <poll.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>

#include "phone/host/failure.h"

namespace {

constexpr const char* kSocketPath = "/dev/socket/harrowmossd";
constexpr size_t kReplyMax = 4096;  // a larger size is an error

// Waits for `events`; false at `deadline_ms`.
bool ready(int fd, short events, int64_t deadline_ms) {
  for (;;) {
    struct pollfd polled = {fd, events, 0};
    const int64_t left = deadline_ms - monotonic_now_ms();
    const int count = poll(&polled, 1, left > 0 ? static_cast<int>(left) : 0);
    if (count > 0) return true;
    if (count == 0 || errno != EINTR) return false;
  }
}

}  // namespace

std::string little_endian(uint64_t value, int bytes) {
  std::string text;
  for (int i = 0; i < bytes; i++) text += static_cast<char>(value >> (8 * i) & 0xff);
  return text;
}

std::string hex(std::string_view bytes) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const char c : bytes) {
    text += kDigits[static_cast<unsigned char>(c) >> 4];
    text += kDigits[c & 15];
  }
  return text;
}

std::string from_hex(std::string_view digits) {
  std::string bytes;
  unsigned half = 1;  // marks the position: 1, then 1h, then 1hh
  for (const char c : digits) {
    if (c == ' ') continue;
    const char* const all = "0123456789abcdef";
    const char* const found = strchr(all, c);
    expect_of_phone(found != nullptr, "not hex: " + std::string(digits));
    half = half << 4 | static_cast<unsigned>(found == nullptr ? 0 : found - all);
    if (half < 0x100) continue;
    bytes += static_cast<char>(half & 0xff);
    half = 1;
  }
  expect_of_phone(half == 1, "half a byte: " + std::string(digits));
  return bytes;
}

std::string frame(std::string_view payload) {
  return little_endian(payload.size(), 2) + std::string(payload);
}

std::string request(int32_t code, int64_t serial, std::string_view arguments) {
  return frame(little_endian(static_cast<uint32_t>(code), 4) +
               little_endian(static_cast<uint64_t>(serial), 8) + std::string(arguments));
}

std::string string16(std::string_view ascii) {
  std::string bytes = little_endian(ascii.size(), 4);
  for (const char c : ascii) bytes += {c, '\0'};
  bytes.append(2, '\0');
  bytes.append((4 - bytes.size() % 4) % 4, '\0');
  return bytes;
}

Client::Client(const Phone& phone, Wait wait)
    : fd_(socket(AF_UNIX,
                 SOCK_STREAM | SOCK_CLOEXEC | (wait == Wait::kToConnect ? 0 : SOCK_NONBLOCK), 0)) {
  struct sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  const std::string path = phone.inside(kSocketPath);
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  if (connect(fd_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) fd_.reset();
}

bool Client::send(std::string_view bytes, int limit_ms) {
  if (!connected()) return false;
  const int64_t deadline = monotonic_now_ms() + limit_ms;
  while (!bytes.empty()) {
    if (!ready(fd_.get(), POLLOUT, deadline)) return false;
    const ssize_t n = ::send(fd_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (n < 0 && errno != EINTR && errno != EAGAIN) return false;
    if (n > 0) bytes.remove_prefix(static_cast<size_t>(n));
  }
  return true;
}

std::string Client::receive(size_t count, int limit_ms) {
  if (!connected()) return "";
  const int64_t deadline = monotonic_now_ms() + limit_ms;
  std::string bytes;
  while (bytes.size() < count && ready(fd_.get(), POLLIN, deadline)) {
    char block[4096];
    const size_t wanted = std::min(count - bytes.size(), sizeof block);
    const ssize_t n = recv(fd_.get(), block, wanted, MSG_DONTWAIT);
    if (n == 0 || (n < 0 && errno != EINTR && errno != EAGAIN)) break;
    if (n > 0) bytes.append(block, static_cast<size_t>(n));
  }
  return bytes;
}

std::string Client::reply(int limit_ms) {
  const int64_t deadline = monotonic_now_ms() + limit_ms;
  const std::string head = receive(4, limit_ms);
  uint32_t size = 0;
  if (head.size() < sizeof size) return head;
  memcpy(&size, head.data(), sizeof size);
  if (size > kReplyMax) return head;
  const int64_t left = deadline - monotonic_now_ms();
  return head + receive(size, left > 0 ? static_cast<int>(left) : 0);
}

bool Client::closed_by_peer(int limit_ms) {
  if (!ready(fd_.get(), POLLIN, monotonic_now_ms() + limit_ms)) return false;
  char byte;
  return recv(fd_.get(), &byte, 1, MSG_DONTWAIT) <= 0;
}

void Client::end_sending() {
  expect_of_phone(shutdown(fd_.get(), SHUT_WR) == 0, errno_text("shutdown"));
}

std::string ask(const Phone& phone, int32_t code, std::string_view arguments, int limit_ms) {
  constexpr int64_t kSerial = 0x1122334455667788;
  constexpr size_t kEchoSize = 12;
  Client client(phone);
  expect_of_phone(client.send(request(code, kSerial, arguments)),
                  "the daemon does not read the request");
  const std::string reply = client.reply(limit_ms);
  const std::string echo =
      little_endian(static_cast<uint32_t>(code), 4) + little_endian(kSerial, 8);
  const bool whole = reply.size() >= 4 + kEchoSize &&
                     reply.compare(0, 4, little_endian(reply.size() - 4, 4)) == 0 &&
                     reply.compare(4, kEchoSize, echo) == 0;
  expect_of_phone(whole, "request " + std::to_string(code) + " got: " + hex(reply));
  return whole ? hex(reply.substr(4 + kEchoSize)) : "";
}
