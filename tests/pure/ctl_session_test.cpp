// harrowmossctl against a daemon of the test's own, over real sockets.
#include <errno.h>
#include <gtest/gtest.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <thread>

#include "client/connection.h"
#include "tests/pure/ctl_support.h"

namespace {

const std::string kVersionReply =
    from_hex("10000000 01000000 0100000000000000 01000000");  // size, code, serial, version

// A reply to the request proper: size, code, serial 2, and what follows.
std::string answer(int32_t code, const std::string& behind_serial) {
  const std::string rest = from_hex(behind_serial);
  return std::string{
             static_cast<char>(12 + rest.size()), 0, 0, 0, static_cast<char>(code), 0, 0, 0} +
         std::string{2, 0, 0, 0, 0, 0, 0, 0} + rest;
}

const std::string kSilence = "silence";  // keeps the connection, answers nothing
const std::string kHangUp = "hang up";

// Answers one frame with each reply in turn, then hangs up; records the frames it read.
class fake_daemon {
 public:
  explicit fake_daemon(std::vector<std::string> replies) : replies_(std::move(replies)) {
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends_), 0);
    thread_ = std::thread([this] { serve(); });
  }
  // The client must have closed its end, or the thread waits for it for good.
  ~fake_daemon() {
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

struct session_row {
  std::vector<std::string> words;
  std::vector<std::string> replies;
  int code;
  const char* out;
  const char* err;
};

TEST(CtlSession, EndsWithTheCodeThatScriptsRelyOn) {
  const session_row rows[] = {
      {{"version"}, {kVersionReply, answer(1, "01000000")}, EXIT_OK, "protocol version 1\n", ""},
      {{"stop"}, {kVersionReply, answer(3, "ffffffff")}, EXIT_DAEMON_FAILED, "", "failure (-1)"},
      {{"stop", "--json"},
       {kVersionReply, answer(3, "")},
       EXIT_OK,
       "{\"command\":\"stop\",\"code\":3,\"result\":null}\n",
       ""},
      {{"raw", "--yes", "11000000"},
       {kVersionReply, from_hex("10000000 11000000 0000000000000000 ffffffff")},
       EXIT_DAEMON_FAILED,
       "11 00 00 00 00 00 00 00 00 00 00 00 ff ff ff ff\n",
       ""},
      {{"--timeout", "0.05", "version"}, {kSilence}, EXIT_TIMED_OUT, "", "another one holds it"},
      {{"--timeout", "0.05", "--json", "stop"},
       {kVersionReply, kSilence},
       EXIT_TIMED_OUT,
       "{\"command\":\"stop\",\"error\":\"no answer in time",
       "goes on"},
      {{"stop"}, {kVersionReply, kHangUp}, EXIT_BAD_REPLY, "", "instead of answering"},
      {{"stop"}, {kVersionReply, from_hex("ffffffff")}, EXIT_BAD_REPLY, "", "reply of -1 bytes"},
      {{"stop"}, {answer(1, "01000000")}, EXIT_BAD_REPLY, "", "serial 2"},
      {{"stop"},
       {from_hex("10000000 01000000 0100000000000000 02000000")},
       EXIT_BAD_REPLY,
       "",
       "version 2"},
  };
  for (const session_row& row : rows) {
    bench_client client;
    fake_daemon daemon(row.replies);
    client.env.dial = daemon.dial();
    const steady_time limit = after(std::chrono::seconds(5));  // below every default time-out
    EXPECT_EQ(client.run(row.words), row.code) << row.err << client.err;
    EXPECT_LT(std::chrono::steady_clock::now(), limit) << row.err;
    EXPECT_TRUE(holds(client.out, row.out)) << client.out;
    EXPECT_TRUE(holds(client.err, row.err)) << client.err;
    EXPECT_EQ(client.err.empty(), *row.err == '\0') << client.err;
  }
}

TEST(CtlSession, AsksTheVersionBeforeAnythingElse) {
  bench_client client;
  fake_daemon daemon({kVersionReply, answer(2, "")});
  client.env.dial = daemon.dial();
  client.properties["persist.sys.zklog.enable"] = "on";
  EXPECT_EQ(client.run({"start", "mobile,net"}), EXIT_OK) << client.err;
  EXPECT_EQ(client.out.find("(no change)"), 0u) << client.out;
  daemon.stop();
  EXPECT_EQ(daemon.frames,
            (std::vector<std::string>{from_hex("0c00 01000000 0100000000000000"),
                                      from_hex("1000 02000000 0200000000000000 05000000")}));
}

TEST(CtlSession, SaysWhenAnAcceptedStartStartedNothing) {
  bench_client client;
  fake_daemon daemon({kVersionReply, answer(2, "00000000")});
  client.env.dial = daemon.dial();
  client.properties["persist.sys.zklog.enable"] = "off";  // the daemon found too little space
  client.free_bytes["/sdcard"] = 67108864;
  EXPECT_EQ(client.run({"start", "net", "--json"}), EXIT_OK);
  EXPECT_TRUE(holds(client.out, "\"warning\":")) << client.out;
  EXPECT_TRUE(holds(client.err, "/sdcard: 67108865 bytes wanted, 67108864 free")) << client.err;
}

TEST(CtlSession, MakesTheDestinationOnceTheDaemonIsThere) {
  bench_client client;
  client.tree.put("file", "");
  const struct {
    const char* place;
    std::vector<std::string> replies;  // none: no daemon
    int code;
    bool made;
    const char* err;
  } rows[] = {
      {"/new/bundle", {}, EXIT_NO_CONNECTION, false, "cannot connect"},
      {"/new/bundle", {kHangUp}, EXIT_BAD_REPLY, false, "closed"},
      {"/file", {kVersionReply}, EXIT_USAGE, false, "Not a directory"},
      {"/new/bundle", {kVersionReply, answer(6, "00000000")}, EXIT_OK, true, ""},
  };
  const auto no_daemon = client.env.dial;
  for (const auto& row : rows) {
    const std::string target = client.tree.root() + row.place;
    fake_daemon daemon(row.replies);
    client.env.dial = row.replies.empty() ? no_daemon : daemon.dial();
    EXPECT_EQ(client.run({"feedback", "--select", "anr", target}), row.code) << client.err;
    EXPECT_TRUE(holds(client.err, row.err)) << client.err;
    EXPECT_EQ(std::filesystem::is_directory(target), row.made) << row.err;
  }
}

TEST(CtlSession, TellsNobodyThereFromNoPlaceInTheQueue) {
  bench_client client;
  EXPECT_EQ(client.run({"version"}), EXIT_NO_CONNECTION);  // no socket at all
  EXPECT_TRUE(holds(client.err, "does not run")) << client.err;

  client.env.dial = [] { return errno = EAGAIN, -1; };  // a full queue
  EXPECT_EQ(client.run({"version", "--timeout", "0.12"}), EXIT_TIMED_OUT);
  EXPECT_TRUE(holds(client.err, "waiting")) << client.err;

  client.env.dial = [] { return errno = EACCES, -1; };
  EXPECT_EQ(client.run({"version", "--json"}), EXIT_NO_CONNECTION);
  EXPECT_TRUE(holds(client.out, "\"exit\":3")) << client.out;
  EXPECT_TRUE(holds(client.err, "root")) << client.err;
}

}  // namespace
