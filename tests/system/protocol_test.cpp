// The control protocol as seen by a client: bytes in, bytes out, and the daemon's log lines.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include "phone/host/daemon.h"

namespace {

using Texts = std::vector<std::string>;

// The version request, and its reply: size, code, serial, version.
const std::string kVersion = from_hex("01000000 0102030405060708");
const std::string kVersionReply = from_hex("10000000 01000000 0102030405060708 01000000");

class Protocol : public ::testing::Test {
 protected:
  Phone phone;
  size_t logged = 0;  // lines before the test's

  void SetUp() override {
    ASSERT_TRUE(settled(phone));
    logged = daemon_log(phone).size();
  }
  // The main thread's new lines, once one of them begins with `last`.
  Texts new_lines(const std::string& last) {
    Texts lines;
    EXPECT_TRUE(eventually([&] {
      lines = main_thread_log(phone, logged);
      return std::any_of(lines.begin(), lines.end(), [&](const std::string& line) {
        return line.compare(0, last.size(), last) == 0;
      });
    })) << last
        << " does not come";
    logged = daemon_log(phone).size();
    return lines;
  }
};

TEST_F(Protocol, ClosesOnALengthThatCannotBe) {
  const struct {
    const char *length, *dump, *complaint;
  } rows[] = {
      {"0000", "3 read socket data = 0-0- ", "6 invalid size 0\n"},
      {"0004", "3 read socket data = 0-4- ", "6 invalid size 1024\n"},
      {"ffff", "3 read socket data = ff-ff- ", "6 invalid size 65535\n"},
  };
  for (const auto& row : rows) {
    Client client(phone);
    ASSERT_TRUE(client.send(from_hex(row.length)));
    EXPECT_TRUE(client.closed_by_peer()) << row.length;
    EXPECT_EQ(new_lines("4 closing"),
              (Texts{"4 new connection\n", row.dump, row.complaint, "4 closing connection\n"}));
  }
}

TEST_F(Protocol, AssemblesFramesFromAnySegments) {
  Client client(phone);
  for (const char byte : frame(kVersion)) ASSERT_TRUE(client.send({&byte, 1}));
  EXPECT_EQ(hex(client.reply()), hex(kVersionReply));

  // Several in one write; the last one is cut within its length.
  const std::string next = request(5, 3);
  ASSERT_TRUE(client.send(frame(kVersion) + request(4, 2) + frame(kVersion) + next.substr(0, 1)));
  EXPECT_EQ(hex(client.reply()), hex(kVersionReply));
  EXPECT_EQ(hex(client.reply()), "0c000000040000000200000000000000");
  EXPECT_EQ(hex(client.reply()), hex(kVersionReply));
  ASSERT_TRUE(client.send(next.substr(1)));
  EXPECT_EQ(hex(client.reply()), "0c000000050000000300000000000000");

  std::string many;
  constexpr int kMany = 500;
  for (int i = 0; i < kMany; i++) many += frame(kVersion);
  ASSERT_TRUE(client.send(many));
  for (int i = 0; i < kMany; i++) ASSERT_EQ(client.reply(), kVersionReply) << i;
}

TEST_F(Protocol, LogsEveryStepOfARequest) {
  Client client(phone);
  ASSERT_TRUE(client.send(frame(kVersion)));
  EXPECT_EQ(client.reply(), kVersionReply);
  client.close();
  EXPECT_EQ(new_lines("4 closing"), (Texts{
                                        "4 new connection\n",
                                        "3 read socket data = c-0- ",
                                        "3 read socket data = 1-0-0-0-1-2-3-4-5-6-7-8- ",
                                        "3 execute: request = 1, serial = 578437695752307201.",
                                        "6 execute: request = 1",
                                        "3 function invoked",
                                        "3 write socket data = 10-0-0-0- ",
                                        "3 write socket data = 1-0-0-0-1-2-3-4-5-6-7-8-1-0-0-0- ",
                                        "6 eof\n",
                                        "6 failed to read size\n",
                                        "4 closing connection\n",
                                    }));
  const std::vector<LogLine> invoked = lines_with(daemon_log(phone), "function invoked");
  EXPECT_EQ(invoked.back().source + "|" + invoked.back().function, "harrowmoss|do_get_version");
  // The lines of handlers before and after their work.
  const std::pair<int, std::pair<const char*, Texts>> rows[] = {
      {7, {"do_get_build_state", {"function invoked"}}},
      {8, {"do_no_service_catch_modem", {"ret: -1."}}},
      {9, {"do_get_pstore_dir", {"function invoked", "function invoked, ,strlen(psstoredir=0)\n"}}},
  };
  for (const auto& [code, row] : rows) {
    ask(phone, code);
    Texts texts;
    for (const LogLine& line : daemon_log(phone)) {
      if (line.function == row.first) texts.push_back(line.text);
    }
    EXPECT_EQ(texts, row.second) << row.first;
  }
}

TEST_F(Protocol, SurvivesAPeerThatClosesInsideARequest) {
  const std::string whole = frame(kVersion);
  for (size_t cut = 0; cut < whole.size(); cut++) {
    Client client(phone);
    ASSERT_TRUE(client.send(whole.substr(0, cut)));
    client.close();
    const Texts lines = new_lines("4 closing");
    ASSERT_GE(lines.size(), 4u) << cut;
    EXPECT_EQ(lines[lines.size() - 3], "6 eof\n") << cut;
    EXPECT_EQ(lines[lines.size() - 2],
              cut < 2 ? "6 failed to read size\n" : "6 failed to read command\n")
        << cut;
  }
  Client half(phone);
  ASSERT_TRUE(half.send(whole));
  half.end_sending();
  EXPECT_EQ(hex(half.reply()), hex(kVersionReply));
  EXPECT_TRUE(half.closed_by_peer());
}

TEST_F(Protocol, SurvivesAPeerThatClosesInsideAReply) {
  for (size_t taken = 0; taken <= kVersionReply.size(); taken++) {
    Client client(phone);
    ASSERT_TRUE(client.send(frame(kVersion)));
    EXPECT_EQ(client.receive(taken).size(), taken);
    client.close();
    const Texts lines = new_lines("4 closing");
    // The error for bytes that the peer leaves unread depends on the daemon's progress.
    const auto has_line = [&lines](const std::string& text) {
      return std::count(lines.begin(), lines.end(), text) == 1;
    };
    const bool reset = has_line(std::string("6 read error: ") + strerror(ECONNRESET) + "\n");
    const bool broken = has_line(std::string("6 write error: ") + strerror(EPIPE) + "\n");
    const bool end = has_line("6 eof\n");
    EXPECT_EQ(reset + broken + end, 1) << taken;
    EXPECT_EQ(end, taken == kVersionReply.size()) << taken;
  }
  EXPECT_TRUE(serves(phone));
}

TEST_F(Protocol, LogsABrokenPipeAndContinues) {
  const pid_t pid = phone.daemon_pid();
  ASSERT_TRUE(phone.signal(pid, SIGSTOP));  // the peer is gone before the reply
  {
    Client client(phone);
    ASSERT_TRUE(client.send(frame(kVersion) + frame(kVersion)));
  }
  ASSERT_TRUE(phone.signal(pid, SIGCONT));
  const Texts lines = new_lines("6 pipe broken");
  const std::string write_error = std::string("6 write error: ") + strerror(EPIPE) + "\n";
  const auto at = std::find(lines.begin(), lines.end(), write_error) - lines.begin();
  const std::string number = std::to_string(pid);
  EXPECT_EQ(Texts(lines.begin() + at, lines.end()),
            (Texts{write_error, "4 closing connection\n",
                   "6 catch signal 13(Broken pipe), pid:" + number +
                       ", parent pid:1, s_harrowmossd_pid:" + number,
                   "6 pipe broken, ignore signal 13(Broken pipe)"}));
  EXPECT_EQ(std::count(lines.begin(), lines.end(), "6 execute: request = 1"), 1);
  EXPECT_TRUE(serves(phone));
  EXPECT_EQ(phone.daemon_pid(), pid);
}

TEST_F(Protocol, ServesOneClientAfterTheOther) {
  constexpr int kWaiting = 3;
  Client first(phone);
  ASSERT_TRUE(first.send(frame(kVersion)));
  EXPECT_EQ(first.reply(), kVersionReply);
  std::vector<Client> waiting;
  for (int i = 0; i < kWaiting; i++) {
    waiting.emplace_back(phone);
    ASSERT_TRUE(waiting.back().send(frame(kVersion)));
  }
  const int connections = count_lines(phone, "new connection");
  ASSERT_TRUE(first.send(frame(kVersion)));  // occupies the daemon until it closes
  EXPECT_EQ(first.reply(), kVersionReply);
  EXPECT_EQ(count_lines(phone, "new connection"), connections);
  first.close();
  for (int i = 0; i < kWaiting; i++) {
    EXPECT_EQ(waiting[i].reply(), kVersionReply) << i;
    EXPECT_EQ(count_lines(phone, "new connection"), connections + 1 + i);
    waiting[i].close();
  }
}

// Five wait besides the next one; the seventh gets EAGAIN.
TEST_F(Protocol, LetsFewClientsWait) {
  constexpr int kBacklog = 5;
  Client first(phone);
  ASSERT_TRUE(first.send(frame(kVersion)));
  EXPECT_EQ(first.reply(), kVersionReply);
  std::vector<Client> waiting;
  for (int i = 0; i <= kBacklog; i++) {
    waiting.emplace_back(phone, Client::Wait::kNotToConnect);
    EXPECT_TRUE(waiting.back().connected()) << i;
  }
  EXPECT_FALSE(Client(phone, Client::Wait::kNotToConnect).connected());
}

// Without a descriptor for the next client it retries ten times a second, not more often.
TEST_F(Protocol, PausesAfterAFailedAccept) {
  constexpr int kTries = 6;
  constexpr int64_t kPauseMs = 100, kRoundingMs = 2;
  const pid_t daemon = phone.outer_pid(phone.daemon_pid());
  struct rlimit limit = {}, none = {};
  ASSERT_GT(daemon, 1);
  ASSERT_EQ(prlimit(daemon, RLIMIT_NOFILE, nullptr, &limit), 0);
  none.rlim_max = limit.rlim_max;
  ASSERT_EQ(prlimit(daemon, RLIMIT_NOFILE, &none, nullptr), 0);
  Client client(phone);
  const std::string failed = std::string("Accept failed: ") + strerror(EMFILE);
  std::vector<LogLine> lines;
  EXPECT_TRUE(eventually([&] {
    lines = lines_with(daemon_log(phone), failed);
    return lines.size() >= kTries;
  }));
  ASSERT_EQ(prlimit(daemon, RLIMIT_NOFILE, &limit, nullptr), 0);
  for (size_t i = 1; i < lines.size(); i++)
    EXPECT_GE(lines[i].time_ms - lines[i - 1].time_ms, kPauseMs - kRoundingMs) << i;
  ASSERT_TRUE(client.send(frame(kVersion)));
  EXPECT_EQ(client.reply(), kVersionReply);
}

}  // namespace
