// The control protocol as a client meets it: bytes in, bytes out, and what the daemon logs of it.
#include <gtest/gtest.h>
#include <limits.h>
#include <signal.h>
#include <string.h>

#include "phone/host/daemon.h"

namespace {

using Texts = std::vector<std::string>;

// The version request, and its reply: size, code, serial, version.
const std::string kVersion = from_hex("01000000 0102030405060708");
const std::string kVersionReply = from_hex("10000000 01000000 0102030405060708 01000000");

class Protocol : public ::testing::Test {
 protected:
  Phone phone;
  size_t logged = 0;  // lines before the test's own

  void SetUp() override {
    ASSERT_TRUE(settled(phone));
    logged = daemon_log(phone).size();
  }
  // The main thread's lines since the last look, once one of them begins with `last`.
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

TEST_F(Protocol, ReadsMissingValuesAsZero) {
  const struct {
    const char* payload;
    const char* reply;  // behind its size, 16
  } rows[] = {
      {"01", "00000000 0000000000000000 ffffffff"},
      {"01000000", "01000000 0000000000000000 01000000"},
      {"01000000 05", "01000000 0000000000000000 01000000"},
      {"01000000 05050505", "01000000 0000000000000000 01000000"},
      {"01000000 05050505050505", "01000000 0000000000000000 01000000"},
      {"01000000 0505050505050585", "01000000 0505050505050585 01000000"},
      {"01000000 0500000000000000 ff", "01000000 0500000000000000 01000000"},  // more than needed
  };
  Client client(phone);
  for (const auto& row : rows) {
    ASSERT_TRUE(client.send(frame(from_hex(row.payload))));
    EXPECT_EQ(hex(client.reply()), hex(from_hex(std::string("10000000 ") + row.reply)))
        << row.payload;
  }
}

TEST_F(Protocol, RefusesCodesOutsideOfTheTable) {
  const std::pair<int32_t, const char*> rows[] = {
      {0, "10000000 00000000 2a00000000000000 ffffffff"},
      {17, "10000000 11000000 2a00000000000000 ffffffff"},
      {-1, "10000000 ffffffff 2a00000000000000 ffffffff"},
      {INT_MIN, "10000000 00000080 2a00000000000000 ffffffff"},
      {INT_MAX, "10000000 ffffff7f 2a00000000000000 ffffffff"},
      {0x10001, "10000000 01000100 2a00000000000000 ffffffff"},  // 1 in the low half only
      {4, "0c000000 04000000 2a00000000000000"},                 // served, without a field
  };
  Client client(phone);
  for (const auto& [code, reply] : rows) {
    ASSERT_TRUE(client.send(request(code, 42)));
    EXPECT_EQ(hex(client.reply()), hex(from_hex(reply))) << code;
  }
  client.close();
  new_lines("4 closing connection\n");
  EXPECT_EQ(count_lines(phone, "execute: ERROR_NOT_SUPORT."), 6);
  EXPECT_EQ(lines_with(daemon_log(phone), "execute: ERROR_NOT_SUPORT.")[0].priority, 6);
  EXPECT_EQ(count_lines(phone, "execute: request = -2147483648, serial = 42."), 1);
}

TEST_F(Protocol, ClosesOnALengthThatCannotBe) {
  const struct {
    const char* length;
    const char* dump;
    const char* complaint;
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

TEST_F(Protocol, PutsFramesTogetherHoweverTheyCome) {
  Client client(phone);
  for (const char byte : frame(kVersion)) ASSERT_TRUE(client.send({&byte, 1}));
  EXPECT_EQ(hex(client.reply()), hex(kVersionReply));

  // Several in one write, the last one cut in its length.
  const std::string next = request(5, 3);
  ASSERT_TRUE(client.send(frame(kVersion) + request(4, 2) + frame(kVersion) + next.substr(0, 1)));
  EXPECT_EQ(hex(client.reply()), hex(kVersionReply));
  EXPECT_EQ(hex(client.reply()), "0c000000040000000200000000000000");
  EXPECT_EQ(hex(client.reply()), hex(kVersionReply));
  EXPECT_EQ(client.receive(1, 50), "");
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
}

TEST_F(Protocol, OutlivesAPeerThatClosesInsideARequest) {
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

TEST_F(Protocol, OutlivesAPeerThatClosesInsideAReply) {
  for (size_t taken = 0; taken <= kVersionReply.size(); taken++) {
    Client client(phone);
    ASSERT_TRUE(client.send(frame(kVersion)));
    EXPECT_EQ(client.receive(taken).size(), taken);
    client.close();
    const Texts lines = new_lines("4 closing");
    // What the kernel says when the peer leaves bytes unread depends on how far the daemon was.
    const auto said = [&lines](const std::string& text) {
      return std::count(lines.begin(), lines.end(), text) == 1;
    };
    const bool reset = said(std::string("6 read error: ") + strerror(ECONNRESET) + "\n");
    const bool broken = said(std::string("6 write error: ") + strerror(EPIPE) + "\n");
    const bool end = said("6 eof\n");
    EXPECT_EQ(reset + broken + end, 1) << taken;
    EXPECT_EQ(end, taken == kVersionReply.size()) << taken;
  }
  EXPECT_TRUE(serves(phone));
}

TEST_F(Protocol, NotesABrokenPipeAndGoesOn) {
  const pid_t pid = phone.daemon_pid();
  ASSERT_TRUE(phone.signal(pid, SIGSTOP));  // so that the peer is gone before the reply
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
  Client first(phone);
  ASSERT_TRUE(first.send(frame(kVersion)));
  EXPECT_EQ(first.reply(), kVersionReply);
  Client second(phone), third(phone);
  ASSERT_TRUE(third.send(frame(kVersion)));
  ASSERT_TRUE(second.send(frame(kVersion)));
  EXPECT_EQ(second.receive(1, 100), "");
  ASSERT_TRUE(first.send(frame(kVersion)));  // it has the daemon until it closes
  EXPECT_EQ(first.reply(), kVersionReply);
  first.close();
  EXPECT_EQ(second.reply(), kVersionReply);
  EXPECT_EQ(third.receive(1, 100), "");
  second.close();
  EXPECT_EQ(third.reply(), kVersionReply);
}

// A message is dumped as text into 1024 bytes: 2 characters for a byte below 16, else 3.
TEST_F(Protocol, ServesWhatItsDumpHolds) {
  Client client(phone);
  const std::string one_digit(511, '\x0f'), two_digits(341, '\xf0');
  ASSERT_TRUE(client.send(frame(one_digit) + frame(two_digits)));
  EXPECT_EQ(hex(client.reply()), hex(from_hex("10000000 0f0f0f0f 0f0f0f0f0f0f0f0f ffffffff")));
  EXPECT_EQ(hex(client.reply()), hex(from_hex("10000000 f0f0f0f0 f0f0f0f0f0f0f0f0 ffffffff")));
  client.close();
  const Texts lines = new_lines("4 closing");
  std::string dump = "3 read socket data = ";
  for (int i = 0; i < 300; i++) dump += "f0-";  // the log itself keeps about 1000 characters
  EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                          [&](const std::string& line) { return line.find(dump) == 0; }),
            1);
}

TEST(ProtocolDump, EndsTheProcessWhenItOverflows) {
  const struct {
    const char* what;
    std::string payload;
  } rows[] = {
      {"512 one-digit bytes", std::string(512, '\x01')},
      {"342 two-digit bytes", std::string(342, '\x10')},
      {"1023 bytes, the longest payload", std::string(1023, '\x01')},
  };
  Phone phones[std::size(rows)];
  pid_t before[std::size(rows)];
  for (size_t i = 0; i < std::size(rows); i++) {
    before[i] = phones[i].daemon_pid();
    Client client(phones[i]);
    ASSERT_TRUE(client.send(frame(rows[i].payload)));
    EXPECT_TRUE(client.closed_by_peer()) << rows[i].what;
  }
  for (size_t i = 0; i < std::size(rows); i++) {
    const Phone& phone = phones[i];
    const std::string ended = "ended harrowmossd " + std::to_string(before[i]) + " signal 6";
    EXPECT_TRUE(eventually([&] {
      const Texts log = phone.init_log();
      return std::count(log.begin(), log.end(), ended) == 1;
    })) << rows[i].what;
    EXPECT_TRUE(eventually([&] { return serves(phone, 2000); })) << rows[i].what;
    EXPECT_NE(phone.daemon_pid(), before[i]);
  }
}

}  // namespace
