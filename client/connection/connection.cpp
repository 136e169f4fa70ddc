#include "client/connection/connection.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>

#include "client/connection/reply.h"

namespace {

constexpr int kTickMs = 100;         // interval of progress and deadline checks
constexpr int kBacklogRetryMs = 50;  // poll() cannot wait for room in the backlog

Outcome hung_up(const char* when) {
  return {kExitBadReply, std::string("the daemon closed the connection ") + when +
                             "; it ended or refused the request"};
}

}  // namespace

Connection::~Connection() {
  if (fd_ != -1) close(fd_);
}

Outcome Connection::open(const std::function<int()>& dial, SteadyTime deadline) {
  while ((fd_ = dial()) == -1) {
    if (errno == EINTR) continue;
    if (errno != EAGAIN) {
      std::string error = std::string("cannot connect to the daemon: ") + strerror(errno);
      if (errno == EACCES || errno == EPERM) error += " (root or the socket's group is needed)";
      if (errno == ENOENT || errno == ECONNREFUSED) error += " (it does not run, or not yet)";
      return {kExitNoConnection, error};
    }
    const int left = left_ms(deadline);
    if (left == 0) return {kExitTimedOut, "too many clients are waiting for the daemon"};
    poll(nullptr, 0, std::min(left, kBacklogRetryMs));
  }
  // The platform's connect function may ignore these flags.
  fcntl(fd_, F_SETFD, FD_CLOEXEC);
  fcntl(fd_, F_SETFL, fcntl(fd_, F_GETFL) | O_NONBLOCK);
  return {};
}

// Until the socket is ready for `events`. A hang-up counts as ready: the next call reports it.
Outcome Connection::wait(short events, SteadyTime deadline, const std::function<void()>& tick) {
  for (;;) {
    const int left = left_ms(deadline);
    pollfd entry = {fd_, events, 0};
    const int ready = poll(&entry, 1, tick ? std::min(left, kTickMs) : left);
    if (tick) tick();
    if (ready > 0) return {};
    if (ready == -1 && errno != EINTR) return {kExitBadReply, strerror(errno)};
    if (left == 0) return {kExitTimedOut, "no answer in time"};
  }
}

Outcome Connection::read_exactly(size_t count, SteadyTime deadline,
                                 const std::function<void()>& tick, std::string* bytes) {
  bytes->assign(count, '\0');
  for (size_t done = 0; done < count;) {
    const Outcome ready = wait(POLLIN, deadline, tick);
    if (ready.code != kExitOk) return ready;
    const ssize_t got = recv(fd_, &(*bytes)[done], count - done, 0);
    if (got == 0) return hung_up(done == 0 ? "instead of answering" : "in the middle of its reply");
    if (got > 0) done += static_cast<size_t>(got);
    if (got == -1 && errno != EAGAIN && errno != EINTR) {
      if (errno == ECONNRESET) return hung_up("before it read the whole request");
      return {kExitBadReply, std::string("reading the reply: ") + strerror(errno)};
    }
  }
  return {};
}

Outcome Connection::exchange(std::string_view frame, SteadyTime deadline,
                             const std::function<void()>& tick, std::string* reply) {
  while (!frame.empty()) {
    const Outcome ready = wait(POLLOUT, deadline, tick);
    if (ready.code != kExitOk) return ready;
    const ssize_t sent = send(fd_, frame.data(), frame.size(), MSG_NOSIGNAL);
    if (sent > 0) frame.remove_prefix(static_cast<size_t>(sent));
    if (sent == -1 && errno != EAGAIN && errno != EINTR) {
      if (errno == EPIPE || errno == ECONNRESET) return hung_up("before the request was sent");
      return {kExitBadReply, std::string("sending the request: ") + strerror(errno)};
    }
  }
  std::string size_bytes;
  Outcome result = read_exactly(4, deadline, tick, &size_bytes);
  if (result.code != kExitOk) return result;
  const int32_t size = int32_at(size_bytes, 0);
  if (size < kReplyMin || size > kReplyMax) {
    return {kExitBadReply, "a reply of " + std::to_string(size) + " bytes is announced; " +
                               std::to_string(kReplyMin) + " to " + std::to_string(kReplyMax) +
                               " are possible"};
  }
  return read_exactly(static_cast<size_t>(size), deadline, tick, reply);
}
