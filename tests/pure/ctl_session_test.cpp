// harrowmossctl against a simulated daemon, over real sockets.
#include <errno.h>
#include <sys/socket.h>
#include <unistd.h>

#include <thread>

#include "client/connection/connection.h"
#include "client/support/child.h"
#include "tests/pure/ctl_support.h"

namespace {

// Size, code, serial, version.
const std::string kVersionReply = from_hex("10000000 01000000 0100000000000000 01000000");

// A reply to the actual request: size, code, serial 2, and the rest.
std::string answer(int32_t code, const std::string& behind_serial) {
  const std::string rest = from_hex(behind_serial);
  return std::string{
             static_cast<char>(12 + rest.size()), 0, 0, 0, static_cast<char>(code), 0, 0, 0} +
         std::string{2, 0, 0, 0, 0, 0, 0, 0} + rest;
}

const std::string kSilence = "silence";  // keeps the connection, answers nothing
const std::string kHangUp = "hang up";

// Answers one frame with each reply in turn, then hangs up; records the frames it read.
class FakeDaemon {
 public:
  explicit FakeDaemon(std::vector<std::string> replies) : replies_(std::move(replies)) {
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends_), 0);
    thread_ = std::thread([this] { serve(); });
  }
  // Call after the client has closed its end: the thread waits for it.
  ~FakeDaemon() {
    stop();
    if (ends_[0] != -1) close(ends_[0]);
  }
  void stop() {
    if (thread_.joinable()) thread_.join();
  }
  std::function<int()> dial() {
    return [this] { return std::exchange(ends_[0], -1); };
  }
  std::vector<std::string> frames;  // after stop()

 private:
  bool read_exactly(size_t count, std::string* bytes) {
    const size_t start = bytes->size();
    bytes->resize(start + count);
    return recv(ends_[1], &(*bytes)[start], count, MSG_WAITALL) == static_cast<ssize_t>(count);
  }
  bool read_frame() {
    std::string frame;
    if (!read_exactly(2, &frame)) return false;
    const size_t length =
        static_cast<unsigned char>(frame[0]) + 256u * static_cast<unsigned char>(frame[1]);
    if (!read_exactly(length, &frame)) return false;
    frames.push_back(frame);
    return true;
  }
  void serve() {
    for (const std::string& reply : replies_) {
      if (!read_frame() || reply == kHangUp) break;
      if (reply == kSilence) {
        read_frame();  // returns when the client hangs up
        break;
      }
      send(ends_[1], reply.data(), reply.size(), MSG_NOSIGNAL);
    }
    close(ends_[1]);
  }

  std::vector<std::string> replies_;
  int ends_[2] = {-1, -1};
  std::thread thread_;
};

struct SessionRow {
  int code;
  std::vector<std::string> words, replies;
  const char *out, *err;
};

TEST(CtlSession, ExitsWithTheDocumentedCode) {
  const std::string &version = kVersionReply, other = "10000000 01000000 0100000000000000 02000000";
  // clang-format off
  const SessionRow rows[] = {
      {kExitOk, {"version"}, {version, answer(1, "01000000")}, "protocol version 1\n", ""},
      {kExitDaemonFailed, {"stop"}, {version, answer(3, "ffffffff")}, "", "failure (-1)"},
      {kExitOk, {"stop", "--json"}, {version, answer(3, "")},
       "{\"command\":\"stop\",\"code\":3,\"result\":null}\n", ""},
      {kExitDaemonFailed, {"raw", "--yes", "11000000"},
       {version, from_hex("10000000 11000000 0000000000000000 ffffffff")},
       "11 00 00 00 00 00 00 00 00 00 00 00 ff ff ff ff\n", ""},
      {kExitTimedOut, {"--timeout", "0.05", "version"}, {kSilence}, "", "another one holds it"},
      {kExitTimedOut, {"--timeout", "0.05", "--json", "stop"}, {version, kSilence},
       "{\"command\":\"stop\",\"error\":\"no answer in time", "goes on"},
      {kExitBadReply, {"stop"}, {version, kHangUp}, "", "instead of answering"},
      {kExitBadReply, {"stop"}, {version, from_hex("ffffffff")}, "", "reply of -1 bytes"},
      {kExitBadReply, {"stop"}, {version, from_hex("ffffff7f")}, "", "reply of 2147483647"},
      {kExitBadReply, {"stop"}, {answer(1, "01000000")}, "", "serial 2"},
      {kExitBadReply, {"stop"}, {from_hex(other)}, "", "version 2"}};
  // clang-format on
  for (const SessionRow& row : rows) {
    BenchClient client;
    FakeDaemon daemon(row.replies);
    client.env.dial = daemon.dial();
    const SteadyTime limit = after(std::chrono::seconds(5));  // below every default time-out
    EXPECT_EQ(client.run(row.words), row.code) << row.err << client.err;
    EXPECT_LT(std::chrono::steady_clock::now(), limit) << row.err;
    EXPECT_TRUE(contains(client.out, row.out)) << client.out;
    EXPECT_TRUE(contains(client.err, row.err)) << client.err;
    EXPECT_EQ(client.err.empty(), *row.err == '\0') << client.err;
  }
}

TEST(CtlSession, AsksTheVersionBeforeAnythingElse) {
  BenchClient client;
  FakeDaemon daemon({kVersionReply, answer(2, "")});
  client.env.dial = daemon.dial();
  client.properties["persist.sys.zklog.enable"] = "on";
  EXPECT_EQ(client.run({"start", "mobile,net"}), kExitOk) << client.err;
  EXPECT_EQ(client.out.find("(no change)"), 0u) << client.out;
  daemon.stop();
  EXPECT_EQ(daemon.frames,
            (std::vector<std::string>{from_hex("0c00 01000000 0100000000000000"),
                                      from_hex("1000 02000000 0200000000000000 05000000")}));
}

TEST(CtlSession, ReportsAnAcceptedStartThatStartedNothing) {
  BenchClient client;
  FakeDaemon daemon({kVersionReply, answer(2, "00000000")});
  client.env.dial = daemon.dial();
  client.properties["persist.sys.zklog.enable"] = "off";  // the daemon found too little space
  client.free_bytes["/sdcard"] = 67108864;
  EXPECT_EQ(client.run({"start", "net", "--json"}), kExitOk);
  EXPECT_TRUE(contains(client.out, "\"warning\":")) << client.out;
  EXPECT_TRUE(contains(client.err, "/sdcard: 67108865 bytes wanted, 67108864 free")) << client.err;
}

TEST(CtlSession, ReportsWhatDeletingLosesWhileLogging) {
  const std::string loss = "what is captured until the next start is lost";
  for (const char* enable : {"on", "off"}) {
    BenchClient client;
    client.properties["persist.sys.zklog.enable"] = enable;
    const bool lost = client.properties["persist.sys.zklog.enable"] == "on";
    EXPECT_EQ(client.run({"delete-logs"}), kExitUsage);
    EXPECT_TRUE(contains(client.err, "--yes")) << client.err;
    EXPECT_EQ(contains(client.err, loss), lost) << client.err;
    FakeDaemon daemon({kVersionReply, answer(12, "")});
    client.env.dial = daemon.dial();
    EXPECT_EQ(client.run({"delete-logs", "--yes"}), kExitOk);
    EXPECT_EQ(client.out, "all logs are deleted\n");
    EXPECT_EQ(contains(client.err, loss), lost) << client.err;
  }
}

TEST(CtlSession, CreatesTheDestinationOnlyWithADaemon) {
  BenchClient client;
  client.tree.put("file", "");
  const struct {
    const char* place;
    std::vector<std::string> replies;  // none: no daemon
    int code;
    bool made;
    const char* err;
  } rows[] = {
      {"/new/bundle", {}, kExitNoConnection, false, "cannot connect"},
      {"/new/bundle", {kHangUp}, kExitBadReply, false, "closed"},
      {"/file", {kVersionReply}, kExitUsage, false, "Not a directory"},
      {"/new/bundle", {kVersionReply, answer(6, "00000000")}, kExitOk, true, ""},
  };
  const auto no_daemon = client.env.dial;
  for (const auto& row : rows) {
    const std::string target = client.tree.root() + row.place;
    FakeDaemon daemon(row.replies);
    client.env.dial = row.replies.empty() ? no_daemon : daemon.dial();
    EXPECT_EQ(client.run({"feedback", "--select", "anr", target}), row.code) << client.err;
    EXPECT_TRUE(contains(client.err, row.err)) << client.err;
    EXPECT_EQ(std::filesystem::is_directory(target), row.made) << row.err;
  }
}

TEST(CtlSession, DistinguishesNoDaemonFromAFullQueue) {
  BenchClient client;
  EXPECT_EQ(client.run({"version"}), kExitNoConnection);  // no socket
  EXPECT_TRUE(contains(client.err, "does not run")) << client.err;

  client.env.dial = [] { return errno = EAGAIN, -1; };  // a full queue
  EXPECT_EQ(client.run({"version", "--timeout", "0.12"}), kExitTimedOut);
  EXPECT_TRUE(contains(client.err, "waiting")) << client.err;

  client.env.dial = [] { return errno = EACCES, -1; };
  EXPECT_EQ(client.run({"version", "--json"}), kExitNoConnection);
  EXPECT_TRUE(contains(client.out, "\"exit\":3")) << client.out;
  EXPECT_TRUE(contains(client.err, "root")) << client.err;
}

TEST(CtlChild, IsKilledAtItsLimit) {
  const SteadyTime killed_by = after(std::chrono::seconds(10));
  EXPECT_EQ(read_child({{"/bin/sleep", "20"}}, std::chrono::milliseconds(20), [](auto) {}), -2);
  EXPECT_GT(left_ms(killed_by), 0);
}

}  // namespace
