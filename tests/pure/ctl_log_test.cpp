// The merged list of a run and the page about it: `log`, `view`.
#include <fcntl.h>
#include <sys/stat.h>

#include <functional>
#include <nlohmann/json.hpp>

#include "client/merge/story.h"
#include "client/merge/when.h"
#include "client/reader/line_reader.h"
#include "client/reader/run_files.h"
#include "client/reader/span.h"
#include "client/view/capture_times.h"
#include "client/view/survey.h"
#include "tests/pure/ctl_support.h"

namespace {

constexpr int64_t kWritten = 1795000000;  // 2026-11-18
constexpr const char* kRun = "run/7#11-18_10-00-00";

std::string line(const std::string& clock, const std::string& text, char level = 'I') {
  return "11-18 " + clock + "   113   114 " + level + " Tag     : " + text + "\n";
}

// A run copied to a computer; all files written at kWritten.
struct Desk : BenchClient {
  void put(const std::string& path, const std::string& content) {
    tree.put(kRun + ("/" + path), content);
    const std::string whole = root() + "/" + path;
    const timespec times[2] = {{kWritten, 0}, {kWritten, 0}};
    utimensat(AT_FDCWD, whole.c_str(), times, 0);
  }
  std::string root() const { return tree.root() + "/" + kRun; }
  // The output of `log` with these options.
  std::string list(std::vector<std::string> options = {}) {
    options.insert(options.begin(), {"log", root()});
    EXPECT_EQ(run(options), kExitOk) << err;
    return out;
  }
};

TEST(CtlLogStamp, IsReadFromEachFormatOrNotAtAll) {
  const LogStamp time = stamp_of({2026, 11, 18, 10, 0, 1, 5000});
  const struct {
    LineFormat format;
    const char* text;
    LogStamp stamp;
  } rows[] = {
      {LineFormat::kThreadtime, "11-18 10:00:01.005 1 1 I T: x", time},
      {LineFormat::kThreadtime, "11-18 10:00:01.005000  1 1 I T: x", time},
      {LineFormat::kThreadtime, "11-18 10:00:01.005000000 1 1 I T: x", time},
      {LineFormat::kThreadtime, "11-21 10:00:01.005 x", time - 362 * kDay},  // a year before
      {LineFormat::kThreadtime, "11-18 10:00:01.00 1 1 I T: x", kNoStamp},
      {LineFormat::kThreadtime, "11-18 10:00:01.005", kNoStamp},
      {LineFormat::kThreadtime, "11-18 10:00:01.00500:  1 1 I T: x", kNoStamp},
      {LineFormat::kThreadtime, "11-18 10:00:01./05000  1 1 I T: x", kNoStamp},
      {LineFormat::kThreadtime, "11-18 10:00:01.00500\xb0  1 1 I T: x", kNoStamp},
      {LineFormat::kThreadtime, "11-31 10:00:01.005 x    ", kNoStamp},
      {LineFormat::kThreadtime, "11-18 24:00:01.005 x    ", kNoStamp},
      {LineFormat::kThreadtime, " 1-18 10:00:01.005 x    ", kNoStamp},
      {LineFormat::kTouch, "2026-11-18 10:00:01:5000  x", time},
      {LineFormat::kTouch, "2026-11-18 10:00:01: 5000 x", kNoStamp},
      {LineFormat::kTouch, "remove device 1: /dev/input/event2", kNoStamp},
      {LineFormat::kSelfLog, "26-11-18 10:00:01 || x", time - 5000},
      {LineFormat::kSelfLog, "26-11-18 10:00:01 x", kNoStamp},
  };
  for (const auto& row : rows) {
    StampParser parser(row.format, kWritten);
    EXPECT_EQ(parser.parse(row.text), row.stamp) << row.text;
  }
  for (const int64_t day : {-719162, -1, 0, 59, 11016, 20775, 47541}) {  // leap years among them
    const LogStamp stamp = day * kDay + 123456;
    EXPECT_EQ(stamp_of(civil_of(stamp)), stamp) << iso_text(stamp);
  }
  EXPECT_EQ(iso_text(time), "2026-11-18T10:00:01.005000");
}

TEST(CtlLogFiles, AreReadInTheOrderOfWriting) {
  std::vector<RunFile> files;
  for (const char* path :
       {"mobile/Q-1-main.txt", "mobile/Q-1-main_1.txt.1", "mobile/Q-1-main_1.txt",
        "mobile/Q-1-main.txt.10", "mobile/Q-1-main.txt.9", "mobile/Q-1-main_10.txt",
        "mobile/Q-1-main_2.txt", "mobile/Q-radio.txt", "touch/event.1.txt", "touch/event.txt",
        ".logger/harrowmossd.txt.1", ".logger/harrowmossd.txt", ".logger/harrowmoss.txt",
        "mobile/logcat_control_message-11-18_10-00-00.txt", "mobile/Q-1-mainly.txt",
        "mobile/Q-1-main.txt.x", "mobile/main.txt", "net/Q-1-netlog.pcap", "mobile/x-touch.txt"}) {
    files.emplace_back().path = path;
  }
  std::string order;
  for (const LogStream& stream : order_files(files)) {
    order += stream.name + ":";
    for (const RunFile& file : stream.files) {
      order += " " + file.path.substr(file.path.find_last_of("/-") + 1);
    }
    order += "\n";
  }
  EXPECT_EQ(order,
            "main: main.txt.10 main.txt.9 main.txt main_1.txt.1 main_1.txt main_2.txt main_10.txt\n"
            "radio: radio.txt\n"
            "touch: event.1.txt event.txt\n"
            "daemon: harrowmossd.txt.1 harrowmossd.txt\n");
}

TEST(CtlLog, MergesBuffersAndGenerationsByTime) {
  Desk client;
  const std::string main1 = "--------- beginning of main\n" + line("10:00:00.100000", "a");
  client.put("mobile/Q-main.txt.1", main1);
  client.put("mobile/Q-main.txt", line("10:00:00.300000", "c") + line("10:00:00.500000", "e"));
  client.put("mobile/Q-radio.txt", line("10:00:00.200000", "b") + line("10:00:00.300000", "d"));
  client.put("mobile/Q-system.txt", "");
  client.put("touch/event.txt", "2026-11-18 10:00:00:250000  EV\n");
  EXPECT_EQ(client.list(), main1 + line("10:00:00.200000", "b") + line("10:00:00.300000", "c") +
                               line("10:00:00.300000", "d") + line("10:00:00.500000", "e"));
  EXPECT_EQ(client.list({"--buffer", "touch,radio"}), line("10:00:00.200000", "b") +
                                                          "2026-11-18 10:00:00:250000  EV\n" +
                                                          line("10:00:00.300000", "d"));
}

TEST(CtlLog, KeepsBadLinesAfterTheLineTheyFollow) {
  Desk client;
  const std::string bad = std::string("\x00\xff\xc3(\x1b[2J", 8) + "\r\n\n" + "11-18 10:0\n" +
                          std::string(1 << 20, 'x') + line("10:00:09.000000", "inside") +
                          "11-99 10:00:00.300000   1   1 I T: no date\n";
  const std::string text = line("10:00:00.100000", "a") + bad;
  client.put("mobile/Q-main.txt", text);
  client.put("mobile/Q-radio.txt", line("10:00:00.100000", "b") + line("10:00:00.200000", "c"));
  client.put("mobile/Q-crash.txt", "cut");
  EXPECT_EQ(client.list(),
            "cut\n" + text + line("10:00:00.100000", "b") + line("10:00:00.200000", "c"));
}

TEST(CtlLog, KeepsTheOrderOfAFileWhenItsClockStepsBack) {
  Desk client;
  client.put("mobile/Q-main.txt", line("10:30:00.000000", "1") + line("10:30:00.000500", "2") +
                                      line("10:30:00.000100", "late") +
                                      line("10:10:00.000000", "4") + line("10:20:00.000000", "6"));
  client.put("mobile/Q-radio.txt", line("10:30:00.000300", "3") + line("10:10:00.000010", "5"));
  client.put("mobile/Q-crash.txt", line("10:40:00.000000", "7"));
  const auto step = [](const char* at, const char* buffer, const char* by, const char* from) {
    return std::string("--------- 11-18 ") + at + " clock: " + buffer + ": set back by " + by +
           " s, from 11-18 " + from + "\n";
  };
  EXPECT_EQ(client.list(), line("10:30:00.000000", "1") + line("10:30:00.000300", "3") +
                               line("10:30:00.000500", "2") + line("10:30:00.000100", "late") +
                               step("10:10:00.000000", "main", "1200.000", "10:30:00.000100") +
                               line("10:10:00.000000", "4") +
                               step("10:10:00.000010", "radio", "1200.000", "10:30:00.000300") +
                               line("10:10:00.000010", "5") + line("10:20:00.000000", "6") +
                               line("10:40:00.000000", "7"));
}

TEST(CtlLog, ShowsHolesWhereLinesAreMissing) {
  const struct {
    std::vector<const char*> files;  // a line each, one per second
    bool opened;                     // the first begins like a logcat's
    const char* hole;
  } rows[] = {
      {{"main.txt.1", "main.txt"}, true, ""},
      {{"main.txt"}, false, ""},
      {{"main.txt.1", "main.txt"},
       false,
       "--------- 11-18 10:00:00.000000 hole: main: older lines were rotated out; "
       "until 11-18 10:00:01.000000\n"},
      {{"main.txt.3", "main.txt"},
       true,
       "--------- 11-18 10:00:01.000000 hole: main: files .2 to .1 are missing; "
       "until 11-18 10:00:02.000000\n"},
      {{"main.txt", "main_1.txt"},
       true,
       "--------- 11-18 10:00:01.000000 hole: main: its logcat was replaced, lines just before it "
       "may be lost; until 11-18 10:00:02.000000\n"},
  };
  for (const auto& row : rows) {
    Desk client;
    for (size_t i = 0; i < row.files.size(); i++) {
      client.put(std::string("mobile/Q-") + row.files[i],
                 (row.opened && i == 0 ? "--------- beginning of main\n" : "") +
                     line("10:00:0" + std::to_string(i + 1) + ".000000", "x"));
    }
    std::string holes;
    const std::string text = client.list({"--grep", "no such text"});
    EXPECT_EQ(text, row.hole) << row.files[0];
    const std::string json = client.list({"--json", "--since", "10:00", "--until", "10:00:01.5"});
    EXPECT_EQ(contains(json, "\"kind\":\"hole\""), *row.hole != '\0') << row.files[0];
  }
}

TEST(CtlLog, FindsARangeWithoutReadingTheRest) {
  Desk client;
  std::string text;
  for (int i = 0; i < 20000; i++) {  // 10:00:00 to 15:33:19, with some lines that have no time
    char clock[32];
    snprintf(clock, sizeof clock, "%02d:%02d:%02d.000000", 10 + i / 3600, i / 60 % 60, i % 60);
    text += line(clock, "n" + std::to_string(i)) + (i % 50 == 0 ? "torn\n" : "");
  }
  client.put("mobile/Q-main.txt.1", text.substr(0, text.find("11-18 13:00:00")));
  client.put("mobile/Q-main.txt", text.substr(text.find("11-18 13:00:00")));
  const struct {
    std::vector<std::string> options;
    int first, last;  // seconds after 10:00; -1: none
  } rows[] = {
      {{"--since", "12:59:59", "--until", "13:00:01"}, 10799, 10801},
      {{"--since", "11-18 15:33:18"}, 19998, 19999},
      {{"--since", "2026-11-18T09:00", "--until", "10:00:02"}, 0, 2},
      {{"--around", "10:10:10,1"}, 609, 611},
      {{"--since", "+2h", "--until", "+7201"}, 7200, 7201},
      {{"--since", "-1.5s"}, 19998, 19999},
      {{"--until=+1"}, 0, 1},
      {{"--since", "11-18 15:33:19.5"}, -1, -1},
      {{"--until", "11-18 09:59"}, -1, -1},
  };
  for (const auto& row : rows) {
    const std::string listed = client.list(row.options);
    const size_t first = listed.find(" n");
    const size_t last = listed.rfind(" n");
    const std::string note = row.options[0] + " " + row.options.back();
    if (row.first == -1) {
      EXPECT_EQ(listed, "") << note;
      continue;
    }
    ASSERT_NE(first, std::string::npos) << note;
    EXPECT_EQ(std::stoi(listed.substr(first + 2)), row.first) << note;
    EXPECT_EQ(std::stoi(listed.substr(last + 2)), row.last) << note;
    const int torn = row.last / 50 - (row.first + 49) / 50 + 1;
    EXPECT_EQ(std::count(listed.begin(), listed.end(), '\n'),
              row.last - row.first + 1 + torn + (contains(listed, " hole: ") ? 1 : 0))
        << note;
  }
  TemporaryTree tree;
  tree.put("file", text);
  const int fd = open((tree.root() + "/file").c_str(), O_RDONLY | O_CLOEXEC);
  const int64_t bytes = static_cast<int64_t>(text.size());
  StampParser parser(LineFormat::kThreadtime, kWritten);
  const int64_t at = find_time(fd, bytes, parser, parser.parse("11-18 14:00:00.000 "));
  EXPECT_LE(at, static_cast<int64_t>(text.find("11-18 14:00:00")));
  EXPECT_GT(at, static_cast<int64_t>(text.find("11-18 14:00:00")) - 128 * 1024);
  close(fd);
}

TEST(CtlLog, FiltersAndCounts) {
  Desk client;
  const std::string warning = "11-18 10:00:00.200000     9     9 W Other : x: a.b\n";
  client.put("mobile/Q-main.txt", line("10:00:00.100000", "a.b") + "torn\n" + warning);
  client.put("mobile/Q-radio.txt", line("10:00:00.300000", "axb", 'E'));
  const std::string first = line("10:00:00.100000", "a.b") + "torn\n";
  const std::string error = line("10:00:00.300000", "axb", 'E');
  const struct {
    std::vector<std::string> options;
    std::string lines;
  } rows[] = {
      {{"--level", "W"}, warning + error},
      {{"--tag", "Other,None"}, warning},
      {{"--pid", "113", "--level", "I"}, first + error},
      {{"--grep", "a.b"}, first + warning},
      {{"--grep", "a.b$", "-E"}, first + warning + error},
      {{"--grep", "torn"}, "torn\n"},
      {{"--buffer", "radio"}, error},
  };
  for (const auto& row : rows) EXPECT_EQ(client.list(row.options), row.lines) << row.options[1];
  EXPECT_TRUE(
      contains(client.list({"--count", "--json"}),
               R"({"buffer":"main","V":0,"D":0,"I":1,"W":1,"E":0,"F":0,"other":1,"total":3})"))
      << client.out;
  const struct {
    std::vector<std::string> options;
    const char* message;
  } wrong[] = {
      {{"--level", "X"}, "--level takes one of"},
      {{"--pid", "1x"}, "--pid takes numbers"},
      {{"--buffer", "mian"}, "there is no buffer \"mian\""},
      {{"--since", "soon"}, "is no time of this run"},
      {{"--since", "10:02", "--until", "10:01"}, "--since is later"},
      {{"--grep", "(", "-E"}, "--grep: "},
      {{"--follow"}, "not being captured"},
      {{"--select", "x"}, "--select is for feedback"},
  };
  for (const auto& row : wrong) {
    std::vector<std::string> words = {"log", client.root()};
    words.insert(words.end(), row.options.begin(), row.options.end());
    EXPECT_EQ(client.run(words), kExitUsage) << row.message;
    EXPECT_TRUE(contains(client.err, row.message)) << client.err;
  }
}

TEST(CtlLog, ReadsAnArchiveOnceForEachBuffer) {
  Desk client;
  const std::string first = "--------- beginning of main\n" + line("10:00:01.000000", "a");
  client.put("mobile/Q-main.txt.2", first);
  client.put("mobile/Q-main.txt.1", line("10:00:03.000000", "c"));
  client.put("mobile/Q-main.txt", line("10:00:04.000000", "d"));
  client.put("mobile/Q-radio.txt", line("10:00:02.000000", "b"));
  const std::string starts = client.env.root + "/starts";
  client.tree.put("system/bin/tar", "#!/bin/sh\necho >> " + starts + "\nexec tar \"$@\"\n");
  ASSERT_EQ(chmod((client.env.root + "/system/bin/tar").c_str(), 0755), 0);
  const std::string whole = client.list();
  const struct {
    std::vector<const char*> order;  // in the archive
    size_t tars;                     // the first one lists the archive
  } rows[] = {{{"main.txt.2", "main.txt.1", "radio.txt", "main.txt"}, 3},
              {{"main.txt", "main.txt.1", "main.txt.2", "radio.txt"}, 5},
              {{"radio.txt", "main.txt.1", "main.txt", "main.txt.2"}, 4}};
  for (const auto& row : rows) {
    const std::string archive = client.tree.root() + "/7.tar.gz";
    std::string command = "tar -c -z -f " + archive + " -C " + client.tree.root();
    for (const char* file : row.order)
      command += std::string(" '") + kRun + "/mobile/Q-" + file + "'";
    ASSERT_EQ(system(command.c_str()), 0);
    std::filesystem::remove(starts);
    ASSERT_EQ(client.run({"log", archive}), kExitOk) << client.err;
    EXPECT_EQ(client.out, whole) << row.order[0];
    EXPECT_EQ(std::filesystem::file_size(starts), row.tars) << row.order[0];
  }
}

// Changes the run while it is followed: each round begins with reading the settings, which takes
// the next step when the list has as many lines as that expects.
TEST(CtlLog, FollowsThroughRotationTruncationAndTheMove) {
  namespace fs = std::filesystem;
  struct Step {
    int lines;
    std::function<void()> act;
  };
  const std::string name = "7#11-18_10-00-00";
  const auto text = [](int from, int to, std::string lines = "") {
    for (; from <= to; from++) lines += line("10:00:0" + std::to_string(from) + ".000000", "x");
    return lines;
  };
  for (const bool by_files : {false, true}) {
    BenchClient client;
    const std::string below = "data/misc/zelkalog/" + name + "/mobile/Q-main.txt";
    const std::string file = client.tree.root() + "/" + below;
    const std::string working = client.env.working + "/" + name;
    const std::string store = client.env.store + "/" + name;
    const auto write = [&](const std::string& more) { client.tree.put(below, more); };
    const auto cut_and_rotate = [&] {
      fs::resize_file(file, text(1, 1).size());
      write(text(2, 3));
      fs::rename(file, file + ".1");
      write(text(4, 4));
    };
    const auto rotate = [&] {
      fs::rename(file + ".1", file + ".2");
      fs::rename(file, file + ".1");
      write(text(5, 5));
    };
    const auto rotate_and_move = [&] {
      rotate();
      fs::rename(working, store);
    };
    const auto copy = [&] { fs::copy(working, store, fs::copy_options::recursive); };
    const std::vector<Step> rows[] = {{{1, cut_and_rotate}, {4, rotate_and_move}},
                                      {{1, cut_and_rotate},
                                       {4, rotate},
                                       {5, copy},
                                       {5, [&] { fs::remove(file + ".1"); }},
                                       {5, [&] { fs::remove(file); }},
                                       {5, [&] { fs::remove_all(working); }}}};
    std::vector<Step> steps = rows[by_files];
    fs::create_directories(client.env.store);
    write(text(1, 1) + "11-18 10:00:02.000000   1");  // a torn line
    client.properties = {{"persist.sys.zklog.enable", "on"},
                         {"sys.harrowmossd.log_store_path", "/sdcard/zelkalog/" + name}};
    const auto property = client.env.property;
    client.env.property = [&](const char* key, const char* fallback) {
      const std::string listed = client.so_far();
      if (!steps.empty() && std::string(key) == "persist.sys.zklog.enable" &&
          std::count(listed.begin(), listed.end(), '\n') >= steps[0].lines) {
        steps[0].act();
        steps.erase(steps.begin());
      }
      return property(key, fallback);
    };
    EXPECT_EQ(client.run({"log", "7", "--follow"}), kExitOk) << client.err;
    EXPECT_EQ(client.out, text(1, 5)) << by_files;
    EXPECT_TRUE(steps.empty());
  }
}

TEST(CtlLog, ShowsTheDaemonsLinesOfThisRunOnly) {
  Desk client;
  const auto told = [](const char* clock, const char* function, const std::string& message) {
    return std::string("26-11-18 ") + clock + " || harrowmossd [7, 7] x|" + function +
           "|1:: " + message + "\n";
  };
  client.tree.put("run/.logger/harrowmossd.txt.2",
                  told("08:00:00", "monitorLogSizeThread", "now delete oldest dir /s/4#x"));
  client.tree.put("run/.logger/harrowmossd.txt",
                  told("09:00:00", "monitorLogSizeThread", "now delete oldest dir /s/4#x") +
                      told("09:59:58", "start_debug_log", "current work dir : 6#11-18_09-59-58") +
                      told("09:59:59", "stop_debug_log", "stop debug log over.") +
                      told("10:00:00", "start_debug_log", "current work dir : 7#11-18_10-00-00") +
                      told("10:00:01", "monitorLogSizeThread", "now delete oldest dir /s/5#x") +
                      told("10:00:01", "other", "of no interest") +
                      told("10:00:05", "stop_debug_log", "stop debug log over.") +
                      told("10:00:09", "start_debug_log", "current work dir : 8#11-18_10-00-09") +
                      told("10:00:10", "monitorLogSizeThread", "now delete oldest dir /s/6#x"));
  client.put("mobile/Q-main.txt", line("10:00:02.000000", "a"));
  EXPECT_EQ(client.list(),
            "--------- 11-18 09:59:59.000000 hole: logging was off until 11-18 10:00:00.000000\n"
            "--------- 11-18 10:00:00.000000 daemon: logging was started: run 7#11-18_10-00-00\n"
            "--------- 11-18 10:00:01.000000 daemon: evicted: /s/5#x\n" +
                line("10:00:02.000000", "a") +
                "--------- 11-18 10:00:05.000000 daemon: logging was stopped\n"
                "--------- 11-18 10:00:05.000000 hole: logging was off until "
                "11-18 10:00:09.000000\n");
}

TEST(CtlLog, TellsWhereTheDaemonsLogWasRotatedOut) {
  Desk client;
  client.put("mobile/Q-main.txt", "");
  client.tree.put(
      "run/.logger/harrowmossd.txt.5",
      "26-11-18 10:00:03 || harrowmossd [7, 7] x|stop_debug_log|1:: stop debug log over.\n");
  EXPECT_EQ(client.list(),
            "--------- 11-18 10:00:00.000000 hole: daemon: older lines were rotated out; until "
            "11-18 10:00:03.000000\n"
            "--------- 11-18 10:00:03.000000 daemon: logging was stopped\n");
}

TEST(CtlLog, JoinsTheTouchRecordersFiles) {
  Desk client;
  const auto event = [](int second) {
    return "2026-11-18 10:00:0" + std::to_string(second) + ":5  EV\n";
  };
  client.put("touch/event.3.txt", event(1) + event(2).substr(0, 10));
  client.put("touch/event.2.txt", event(2).substr(10));
  client.put("touch/event.txt", event(4));
  client.put("mobile/Q-main.txt", line("10:00:01.000006", "a"));
  EXPECT_EQ(client.list({"--buffer", "all"}),
            "--------- 11-18 10:00:00.000000 hole: touch: older lines may have been rotated out; "
            "until 11-18 10:00:01.000005\n" +
                event(1) + event(2) +
                "--------- 11-18 10:00:01.000005 hole: touch: files .1 to .1 are missing; until "
                "11-18 10:00:04.000005\n" +
                line("10:00:01.000006", "a") + event(4));
}

TEST(CtlView, KeepsEveryTextInsideItsData) {
  Desk client;
  const std::string evil = "</script><script>alert(1)</script><!-- \xff\x01\"\\";
  client.put("mobile/Q-main.txt", line("10:00:00.100000", evil, 'E'));
  client.put("mobile/Q-crash.txt",
             "11-18 10:00:01.000000     9     9 E AndroidRuntime: FATAL EXCEPTION: " + evil + "\n" +
                 "11-18 10:00:01.000000     9     9 E AndroidRuntime: at x\n");
  client.put("mobile/" + std::string("<img src=x onerror=alert(1)>"), "x");
  client.put("tombstones/tombstone_00", "x");
  ASSERT_EQ(client.run({"view", client.root(), "-o", "-"}), kExitOk) << client.err;
  const std::string& page = client.out;
  const size_t data = page.find("id=\"data\">");
  ASSERT_NE(data, std::string::npos);
  const size_t end = page.find('<', data);
  EXPECT_EQ(page.substr(end, 9), "</script>");
  EXPECT_EQ(page.find("alert(1)"), page.find("alert(1)", data));  // nowhere else
  EXPECT_EQ(page.find("alert(1)", end), std::string::npos);
  const nlohmann::json read = nlohmann::json::parse(page.substr(data + 10, end - data - 10));
  EXPECT_EQ(read["crashes"][0]["lines"].size(), 2u);
  EXPECT_EQ(read["marks"].size(), 2u);
  EXPECT_EQ(read["marks"][0]["kind"], "crash");
  EXPECT_EQ(read["tags"][1][0], "Tag");
  EXPECT_EQ(client.run({"view", client.root()}), kExitUsage);

  std::string many;  // marks whose text grows sixfold when escaped
  for (int i = 0; i < 3000; i++) {
    many += "11-18 10:00:02.000000     9     9 E ActivityManager: ANR in " + std::string(240, '<') +
            "\n";
  }
  client.put("mobile/Q-system.txt", many);
  ASSERT_EQ(client.run({"view", client.root(), "-o", "-"}), kExitOk);
  EXPECT_LT(client.out.size(), 2u << 20);
  EXPECT_TRUE(contains(client.out, "\"marks_left_out\":2")) << client.out.size();
}

TEST(CtlView, MarksCrashFilesByTheTimeInThem) {
  Desk client;
  client.put("mobile/Q-main.txt", line("10:00:01.000000", "a"));
  client.put("tombstones/tombstone_00",
             "*** ***\nABI: 'arm64'\nTimestamp: 2026-11-18 10:00:02.724049+0100\nat x\n");
  client.put("anr/anr_0",
             "Subject: x\n----- pid 9 at 2026-11-18 10:00:03.5+0100 -----\n----- pid 8 at x\n");
  client.put("anr/anr_1", "");
  const struct {
    const char* text;
    LogStamp time;
  } rows[] = {{"tombstones/tombstone_00", stamp_of({2026, 11, 18, 10, 0, 2, 0})},
              {"anr/anr_0", stamp_of({2026, 11, 18, 10, 0, 3, 0})},
              {"anr/anr_1", (kWritten - 3600) * kSecond}};  // in the zone that the log tells
  ASSERT_EQ(client.run({"view", client.root(), "-o", "-"}), kExitOk) << client.err;
  const size_t data = client.out.find("id=\"data\">") + 10;
  const nlohmann::json read =
      nlohmann::json::parse(client.out.substr(data, client.out.find('<', data) - data));
  ASSERT_EQ(read["marks"].size(), std::size(rows));
  for (const auto& row : rows) {
    for (const auto& mark : read["marks"]) {
      if (mark["text"] != row.text) continue;
      EXPECT_EQ(mark["time"], row.time) << row.text;
    }
  }
}

TEST(CtlView, CountsByIntervalsThatGrow) {
  Timeline times;
  const LogStamp start = stamp_of({2026, 11, 18, 0, 0, 0, 0});
  for (int i = 0; i < 86400; i++) times.add(i % 2, start + i * kSecond, i % 10 == 0 ? 'E' : 'I');
  times.add(0, start - kDay, 'W');
  int64_t lines = 0, errors = 0, warnings = 0;
  for (const auto& lane : times.lanes()) {
    for (const auto& [number, counts] : lane) {
      lines += counts.lines, errors += counts.errors, warnings += counts.warnings;
    }
  }
  EXPECT_EQ(lines, 86401);
  EXPECT_EQ(errors, 8640);
  EXPECT_EQ(warnings, 1);
  EXPECT_EQ(times.first(), (start - kDay) / times.width());
  EXPECT_LE(2 * kDay / times.width(), Timeline::kIntervals);
  EXPECT_GT(2 * kDay / times.width(), Timeline::kIntervals / 4);
}

TEST(CtlView, ReadsThePacketsOfACapture) {
  TemporaryTree tree;
  std::string header(24, '\0'), packet(16, '\0');
  header.replace(0, 4, from_hex("d4 c3 b2 a1"));
  packet.replace(0, 12, from_hex("01 00 00 00 02 00 00 00 03 00 00 00"));
  std::string swapped_header(24, '\0'), swapped(16, '\0');
  swapped_header.replace(0, 4, from_hex("a1 b2 3c 4d"));  // nanoseconds, other byte order
  swapped.replace(0, 12, from_hex("00 00 00 01 00 00 07 d0 00 00 00 03"));
  const struct {
    std::string bytes;
    std::vector<int64_t> times;
  } rows[] = {
      {header + packet + "abc" + packet + "ab", {1000002, 1000002}},
      {swapped_header + swapped + "abc", {1000002}},
      {header + std::string(16, '\xff'), {}},
      {"no capture", {}},
  };
  for (size_t i = 0; i < std::size(rows); i++) {
    tree.put(std::to_string(i), rows[i].bytes);
    const int fd = open((tree.root() + "/" + std::to_string(i)).c_str(), O_RDONLY | O_CLOEXEC);
    std::vector<int64_t> times;
    read_capture(fd, [&](int64_t micros) { times.push_back(micros); });
    EXPECT_EQ(times, rows[i].times) << i;
    close(fd);
  }
}

}  // namespace
