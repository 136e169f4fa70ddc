// For any reply on the control socket the client reads exactly the bytes that a daemon would have
// sent, or prints one line of error.
#include <stdint.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <iterator>
#include <string>

#include "client/connection/connection.h"
#include "client/connection/reply.h"
#include "fuzz/require.h"

namespace {

constexpr int64_t kSerial = 1;

std::string little_endian(uint64_t value, size_t bytes) {
  std::string text;
  for (; bytes > 0; bytes--, value >>= 8) text += static_cast<char>(value & 0xff);
  return text;
}

std::string encoded(const Reply& answer, const RequestName& request) {
  std::string bytes =
      little_endian(static_cast<uint32_t>(answer.code), 4) + little_endian(kSerial, 8);
  if (!answer.has_result) return bytes;
  if (answer.unknown || request.reply == ReplyFields::kInt)
    return bytes + little_endian(static_cast<uint32_t>(answer.number), 4);
  bytes += little_endian(answer.text.size(), 4) + answer.text;
  return bytes + std::string(4 - answer.text.size() % 4, '\0');
}

}  // namespace

// Input: a byte for the request, then the bytes from the daemon.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  int ends[2];
  if (size == 0 || socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) return 0;
  const RequestName& request = kRequestNames[data[0] % std::size(kRequestNames)];
  require(write(ends[1], data + 1, size - 1) == static_cast<ssize_t>(size - 1));
  shutdown(ends[1], SHUT_WR);
  Connection client;
  std::string bytes;
  const auto deadline = after(std::chrono::seconds(20));
  Outcome result = client.open([&] { return ends[0]; }, deadline);
  if (result.code == kExitOk) result = client.exchange("request", deadline, nullptr, &bytes);
  require(result.code == kExitOk || (result.code == kExitBadReply && !result.error.empty()));
  if (result.code == kExitOk) {
    Reply answer;
    std::string error;
    const bool genuine = decode_reply(bytes, request, kSerial, &answer, &error);
    require(genuine ? encoded(answer, request) == bytes : !error.empty());
    require(error.find('\n') == std::string::npos);
  }
  close(ends[1]);
  return 0;
}
