// For any bytes of a client the daemon survives: it sends one reply, which our client accepts, to
// each whole frame, and closes the connection at the first invalid length or at the end.
//
// Requests are executed in this process, files included, but start nothing: fork() and thread
// creation fail, and pauses return at once. Excluded is a payload whose dump is longer than
// kDumpTextMax: it ends the daemon on purpose.
#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <stdint.h>
#include <string.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "client/connection/reply.h"
#include "daemon/harrowmoss.h"
#include "debuglog/workers.h"
#include "fuzz/require.h"
#include "model/paths.h"
#include "platform/linux/bench_phone.h"
#include "protocol/encode.h"

// These replace the C library's functions for the daemon.
extern "C" {
int __real_pthread_create(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);

static bool s_serving = false;  // the fuzzer's threads are not affected

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                          void* arg) {
  return s_serving ? EAGAIN : __real_pthread_create(thread, attributes, body, arg);
}

pid_t __wrap_fork() {
  errno = EAGAIN;
  return -1;
}

int __wrap_clock_nanosleep(clockid_t, int, const timespec*, timespec*) {
  return 0;
}
}

namespace {

constexpr char kPropertiesLog[] = "/dev/bench/properties.log";
constexpr const char* kRunDirs[] = {"/data/misc/zelkalog", "/data/vendor/zelkalog"};
constexpr size_t kMostFrames = 16;  // so that the replies fit into the socket

struct Conversation {
  std::string_view sent;
  std::vector<std::string_view> answered;  // payloads
};

Conversation plan(std::string_view stream) {
  Conversation talk = {stream, {}};
  for (std::string_view rest = stream; rest.size() >= 2;) {
    const auto low = static_cast<unsigned char>(rest[0]);
    const size_t size = low + (static_cast<unsigned char>(rest[1]) << 8);
    if (size < 1 || size > kPayloadMax || size > rest.size() - 2) break;
    const std::string_view payload = rest.substr(2, size);
    if (dump_text_length(payload) > kDumpTextMax || talk.answered.size() == kMostFrames) {
      talk.sent.remove_suffix(rest.size());
      break;
    }
    talk.answered.push_back(payload);
    rest.remove_prefix(2 + size);
  }
  return talk;
}

// The next `size` bytes from the daemon.
std::string receive(int fd, size_t size) {
  std::string bytes(size, '\0');
  require(recv(fd, &bytes[0], size, MSG_WAITALL) == static_cast<ssize_t>(size));
  return bytes;
}

void check_reply(int fd, std::string_view payload) {
  const int32_t size = int32_at(receive(fd, 4), 0);
  require(size >= kReplyMin && size <= kReplyMax);
  const std::string bytes = receive(fd, static_cast<size_t>(size));
  // Missing bytes of a short request read as 0.
  const int32_t code = payload.size() < 4 ? 0 : int32_at(payload, 0);
  int64_t serial = 0;
  if (payload.size() >= 12) memcpy(&serial, payload.data() + 4, sizeof(serial));
  const bool known = code >= 1 && code <= kRequestCount;
  RequestName request = {code, "", "", RequestArguments::kNone, ReplyFields::kInt};
  if (known) request = kRequestNames[code - 1];
  Reply answer;
  std::string error;
  require(decode_reply(bytes, request, serial, &answer, &error));
  require(known || (answer.has_result && answer.number == -1));
}

// Runs would slow the next input down.
void forget_runs() {
  std::error_code ignored;
  for (const char* dir : kRunDirs) {
    for (const auto& entry : std::filesystem::directory_iterator(dir, ignored)) {
      if (entry.path().filename().native().find('#') != std::string::npos)
        std::filesystem::remove_all(entry.path(), ignored);
    }
  }
  (void)!truncate(kPropertiesLog, 0);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  require_bench_phone();
  s_harrowmossd_pid = getpid();
  initialize_globals();
  std::filesystem::create_directories(std::filesystem::path(kKernelLog).parent_path());
  close(open(kKernelLog, O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
  return 0;
}

// Input: the bytes of a client on one connection.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const Conversation talk = plan({reinterpret_cast<const char*>(data), size});
  int ends[2];
  require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0);
  require(send(ends[0], talk.sent.data(), talk.sent.size(), 0) ==
          static_cast<ssize_t>(talk.sent.size()));
  shutdown(ends[0], SHUT_WR);
  s_serving = true;
  serve_connection(ends[1]);
  s_serving = false;
  for (const std::string_view payload : talk.answered) check_reply(ends[0], payload);
  char more;
  require(recv(ends[0], &more, 1, 0) < 1);
  close(ends[0]);
  forget_runs();
  return 0;
}
