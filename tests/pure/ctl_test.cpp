// harrowmossctl as functions over values: command line, replies, texts.
#include <binder/Parcel.h>

#include <nlohmann/json.hpp>

#include "client/connection/reply.h"
#include "client/connection/requests.h"
#include "client/support/json.h"
#include "client/support/text.h"
#include "tests/pure/ctl_support.h"

namespace {

const RequestName& request(int32_t code) {
  return kRequestNames[code - 1];
}

TEST(CtlCommandLine, IsUnderstood) {
  const struct {
    std::vector<std::string> words;
    const char* command;
    std::vector<std::string> arguments;
    int timeout_ms;
    bool json;
  } rows[] = {
      {{"version"}, "version", {}, 10'000, false},
      {{"start", "net", "--json"}, "start", {"net"}, 960'000, true},
      {{"feedback", "--select=anr", "/sdcard/x"}, "feedback", {"/sdcard/x"}, 120'000, false},
      {{"--timeout", "0.25", "version"}, "version", {}, 250, false},
      {{"start", "--", "--json"}, "start", {"--json"}, 960'000, false},
      {{"raw", "--yes", "01", "02"}, "raw", {"01", "02"}, 120'000, false},
      {{"pack", "-o", "-", "12"}, "pack", {"12"}, 0, false},
  };
  for (const auto& row : rows) {
    Invocation call;
    std::string error;
    ASSERT_TRUE(parse_command_line(row.words, &call, &error)) << error;
    EXPECT_STREQ(call.what->name, row.command);
    EXPECT_EQ(call.arguments, row.arguments) << row.command;
    EXPECT_EQ(call.timeout.count(), row.timeout_ms) << row.command;
    EXPECT_EQ(call.json, row.json) << row.command;
  }
}

TEST(CtlCommandLine, MisuseExitsWith2AndAMessage) {
  const std::pair<std::vector<std::string>, const char*> rows[] = {
      {{}, "no command"},
      {{"sttaus"}, "no command \"sttaus\""},
      {{"version", "--jsno"}, "unknown option --jsno"},
      {{"version", "extra"}, "usage: harrowmossctl version"},
      {{"start"}, "usage: harrowmossctl start TYPES"},
      {{"start", "mobil"}, "\"mobil\""},
      {{"--timeout"}, "needs a value"},
      {{"version", "--timeout", "0"}, "--timeout"},
      {{"version", "--timeout", "1s"}, "--timeout"},
      {{"status", "--dry-run"}, "--dry-run"},
      {{"feedback", "/sdcard/x"}, "--select"},
      {{"feedback", "--estimate", "--select", "anr", "/sdcard"}, "too high in the tree"},
      {{"check", "1", "-o", "x"}, "-o is for pack"},
      {{"pack", "1", "-o", ""}, "-o needs a value"},
      {{"pack", "1"}, "no run \"1\""},
      {{"pack", "sdcard/x"}, "absolute"},
      {{"pack", "/no/such"}, "no directory /no/such"},
      {{"feedback", "--select", "anr", "relative/x"}, "absolute"},
      {{"delete-logs"}, "--yes"},
      {{"raw", "0100"}, "--yes"},
      {{"raw", "--yes", "010"}, "hexadecimal"},
      {{"raw", "--yes", std::string(2 * 342, 'f')}, "aborts"},
      {{"status", "--since", "1"}, "are for log"},
      {{"status", "--until", "1"}, "are for log"},
      {{"status", "--around", "1"}, "are for log"},
      {{"status", "--buffer", "main"}, "are for log"},
      {{"status", "--tag", "x"}, "are for log"},
      {{"status", "--level", "E"}, "are for log"},
      {{"status", "--pid", "1"}, "are for log"},
      {{"status", "--grep", "x"}, "are for log"},
      {{"status", "--count"}, "are for log"},
  };
  for (const auto& [words, message] : rows) {
    BenchClient client;
    EXPECT_EQ(client.run(words), kExitUsage) << message;
    EXPECT_TRUE(contains(client.err, message)) << client.err;
    EXPECT_EQ(client.out, "");
  }
}

TEST(CtlCommandLine, EveryRequestIsACommandAndEveryCommandHasHelp) {
  BenchClient client;
  EXPECT_EQ(client.run({"--help"}), kExitOk);
  const std::string help = client.out;
  for (const RequestName& row : kRequestNames) {
    const Command* found = find_command(row.command);
    ASSERT_NE(found, nullptr) << row.command;
    EXPECT_EQ(found->request, &row) << row.command;
    EXPECT_TRUE(contains(help, std::string("\n  ") + row.command + " ")) << row.command;
    EXPECT_EQ(client.run({"help", row.command}), kExitOk);
    EXPECT_TRUE(contains(client.out, std::string("usage: harrowmossctl ") + row.command));
  }
  const std::pair<std::vector<std::string>, const char*> rows[] = {
      {{"--help", "--json"}, "{\"command\":\"help\",\"about\":null,\"text\":\"usage: "},
      {{"stop", "-h", "--json"}, "{\"command\":\"help\",\"about\":\"stop\",\"text\":\"usage: "},
      {{"help", "stop", "--json"}, "{\"command\":\"help\",\"about\":\"stop\",\"text\":\"usage: "},
      {{"--version", "--json"}, "{\"version\":\""},
      {{"stop", "--version", "--json"}, "{\"version\":\""},
  };
  for (const auto& [words, begin] : rows) {
    EXPECT_EQ(client.run(words), kExitOk);
    EXPECT_EQ(client.out.find(begin), 0u) << client.out;
    EXPECT_TRUE(nlohmann::json::accept(client.out)) << client.out;
  }
}

// The rule's own rows are in destination_test.cpp.
TEST(CtlDestination, IsRefusedByTheDaemonsRule) {
  EXPECT_EQ(check_destination("/sdcard/a b"), "");
  EXPECT_EQ(check_destination("/sdcard"), "the destination is refused: too high in the tree");
  EXPECT_EQ(check_destination(std::string_view("/sdcard/a\0b", 11)),
            "the destination is refused: has a control byte");
}

struct ReplyRow {
  int32_t code;
  const char* behind_serial;  // hex
  const char* text;
  const char* result;  // JSON
};

TEST(CtlReply, IsPrintedAsTextAndAsJson) {
  const ReplyRow rows[] = {
      {1, "01000000", "protocol version 1", "1"},
      {2, "00000000", "debug logging is started", "0"},
      {2, "", "(no change)", "null"},
      {6, "", "(nothing collected)", "null"},
      {7, "00000000", "build state 0 (intact)", "0,\"meaning\":\"intact\""},
      {8, "ffffffff", "(-1): debug logging with MPSSDump is not on", "-1"},
      {9, "04000000 61626364 00000000", "abcd", "\"abcd\""},  // padding grows with the terminator
      {9, "00000000 00000000", "(no run yet)", "\"\""},
      {10, "ffffffff", "does not know this request", "-1"},
      {12, "", "all logs are deleted", "null"},
      {16, "04000000 3a5b0a5d 00000000", ":[\n]", "\":[\\u000a]\""},
      {16, "02000000 1bff0000", "\\x1b\\xff", "\"\\u001b\xef\xbf\xbd\""},
  };
  for (const ReplyRow& row : rows) {
    const std::string head{static_cast<char>(row.code), 0, 0, 0, 9, 0, 0, 0, 0, 0, 0, 0};
    Reply answer;
    std::string error;
    ASSERT_TRUE(
        decode_reply(head + from_hex(row.behind_serial), request(row.code), 9, &answer, &error))
        << row.code << ": " << error;
    EXPECT_TRUE(contains(reply_text(answer, request(row.code)), row.text))
        << reply_text(answer, request(row.code));
    EXPECT_TRUE(contains(reply_json(answer, request(row.code), ""),
                         std::string("\"result\":") + row.result))
        << reply_json(answer, request(row.code), "");
  }
}

TEST(CtlReply, IsRejectedWhenInconsistent) {
  const struct {
    int32_t code;
    const char *bytes, *message;
  } rows[] = {
      {1, "", "0 bytes"},
      {1, "01000000 0900000000000000 010000", "just a number"},  // truncated number
      {1, "01000000 09000000000000", "11 bytes"},                // truncated serial
      {1, "02000000 0900000000000000 01000000", "request 2"},
      {1, "01000000 0900000001000000 01000000", "serial 4294967305"},  // the upper half counts
      {4, "04000000 0900000000000000 00000000", "nothing behind"},
      {9, "09000000 0900000000000000 04000000 61626364", "does not match"},  // no terminator
      {9, "09000000 0900000000000000 02000000 61626300", "does not end"},
      {9, "09000000 0900000000000000 02000000 61000000", "does not end"},  // a NUL inside
      {9, "09000000 0900000000000000 02000000 61620001", "does not end"},  // padding is zero
      {9, "09000000 0900000000000000 03000000 61626300 00000000", "does not match"},
      {9, "09000000 0900000000000000 ffffff7f 61626300", "does not match"},
  };
  for (const auto& row : rows) {
    Reply answer;
    std::string error;
    EXPECT_FALSE(decode_reply(from_hex(row.bytes), request(row.code), 9, &answer, &error))
        << row.bytes;
    EXPECT_TRUE(contains(error, row.message)) << row.bytes << ": " << error;
  }
}

TEST(CtlJson, CanContainAnyBytes) {
  const std::string any = std::string("\0\n\t\x1f\x7f a\"b\\c/\xc3\xa9\xf0\x9f\x98\x80", 18);
  const std::string rows[][2] = {
      {"", ""},
      {any, any},
      {"\xff!", "\xef\xbf\xbd!"},
      {"\xe2\x82!", "\xef\xbf\xbd\xef\xbf\xbd!"},  // a truncated character affects no other
  };
  for (const auto& [bytes, read] : rows)
    EXPECT_EQ(nlohmann::json::parse(JsonWriter().string(bytes).text()), read);

  // Escaped, because a terminal acts on it; JSON itself would allow it.
  EXPECT_EQ(JsonWriter().string("\x7f\x1b").text(), "\"\\u007f\\u001b\"");

  JsonWriter json;
  json.begin_object().key("a").begin_array().number(-1).null().begin_object().end_object();
  json.end_array().flag("b", false).member("c", "d").end_object();
  EXPECT_EQ(json.text(), R"({"a":[-1,null,{}],"b":false,"c":"d"})");
}

TEST(CtlText, CannotSteerATerminal) {
  const std::pair<const char*, const char*> rows[] = {
      {"plain\nlines \xc3\xa9", "plain\nlines \xc3\xa9"},
      {"\x1b[2J", "\\x1b[2J"},
      {"a\rb\x7f", "a\\x0db\\x7f"},
      {"\xc2\x9f\xc2\xa0", "\\xc2\\x9f\xc2\xa0"},  // the last control character, and the next one
      {"\xc2\x9b"
       "31m",
       "\\xc2\\x9b31m"},  // one-character CSI
  };
  for (const auto& [bytes, shown] : rows) EXPECT_EQ(printable(bytes), shown);
}

TEST(CtlDryRun, ShowsTheFrameAndDoesNotConnect) {
  BenchClient client;
  client.env.dial = []() -> int {
    ADD_FAILURE() << "connected";
    return -1;
  };
  const std::string target = client.tree.root() + "/bundle";
  EXPECT_EQ(client.run({"feedback", "--dry-run", "--select", "anr", target}), kExitOk);
  for (const char* part : {"6 feedback", "anr (0x40)", "nothing was sent"}) {
    EXPECT_TRUE(contains(client.out, part)) << client.out;
  }
  EXPECT_FALSE(std::filesystem::exists(target));
  EXPECT_EQ(client.run({"delete-logs", "--dry-run"}), kExitOk);  // needs no --yes
  EXPECT_EQ(client.run({"start", "0x801", "--dry-run", "--json"}), kExitOk);
  EXPECT_TRUE(contains(client.out, "\"frame\":\"10 00 02 00 00 00 02 00")) << client.out;
  EXPECT_TRUE(contains(client.out, "\"mobile,0x800 (0x801)\"")) << client.out;
  EXPECT_TRUE(contains(client.err, "bits 0x800 select nothing")) << client.err;
}

}  // namespace
