#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>

#include <filesystem>

#include "phone/journal.h"
#include "phone/kmsg.h"
#include "phone/log_output.h"
#include "phone/logcat_options.h"
#include "phone/options.h"

namespace {

constexpr int64_t kSecond = 1000000000;

// Local time is UTC during these tests only.
class LogcatTime : public ::testing::Test {
 protected:
  void SetUp() override {
    const char* zone = getenv("TZ");
    had_zone_ = zone != nullptr;
    if (had_zone_) zone_ = zone;
    setenv("TZ", "UTC", 1);
    tzset();
  }
  void TearDown() override {
    had_zone_ ? setenv("TZ", zone_.c_str(), 1) : unsetenv("TZ");
    tzset();
  }

 private:
  bool had_zone_ = false;
  std::string zone_;
};

LogEntry entry_at(int64_t time_ns, const char* tag, const char* message) {
  return {"main", time_ns, 321, 4567, 1000, 6, tag, message};
}

TEST_F(LogcatTime, FormatsAsTheRealTool) {
  // 2023-03-07 14:05:09.012345678
  const int64_t time = 1678197909 * kSecond + 12345678;
  const struct {
    const char* format;
    const char* tag;
    const char* message;
    const char* text;
  } rows[] = {
      {"threadtime", "Tag", "hello", "03-07 14:05:09.012   321  4567 E Tag     : hello\n"},
      {"threadtime,usec", "harrowmossd", "hello",
       "03-07 14:05:09.012345   321  4567 E harrowmossd: hello\n"},
      {"threadtime", "T", "a\nb\n",
       "03-07 14:05:09.012   321  4567 E T       : a\n"
       "03-07 14:05:09.012   321  4567 E T       : b\n"},
      {"threadtime", "T", "a\n\nb",
       "03-07 14:05:09.012   321  4567 E T       : a\n"
       "03-07 14:05:09.012   321  4567 E T       : \n"
       "03-07 14:05:09.012   321  4567 E T       : b\n"},
      {"threadtime", "T", "", "03-07 14:05:09.012   321  4567 E T       : \n"},
      {"threadtime uid year", "T", "a",
       "2023-03-07 14:05:09.012  1000:  321  4567 E T       : a\n"},
      {"brief", "Tag", "a", "E/Tag     (  321): a\n"},
      {"tag", "Tag", "a", "E/Tag     : a\n"},
      {"time", "Tag", "a", "03-07 14:05:09.012 E/Tag     (  321): a\n"},
      {"process", "Tag", "a", "E(  321) a\n"},
      {"raw", "Tag", "a\nb", "a\nb\n"},
  };
  for (const auto& row : rows) {
    LogFormat format;
    ASSERT_TRUE(set_log_format(row.format, &format)) << row.format;
    EXPECT_EQ(format_entry(entry_at(time, row.tag, row.message), format), row.text) << row.format;
  }
  LogFormat format;
  EXPECT_FALSE(set_log_format("threadtime,nsec", &format));
}

TEST_F(LogcatTime, ReadsItsOwnTimesBack) {
  const int64_t now = 1704067200 * kSecond;  // 2024-01-01 00:00:00
  EXPECT_EQ(time_of_line("12-31 23:59:58.250000  1  1 I t: m", now), now - kSecond * 7 / 4);
  EXPECT_EQ(time_of_line("01-01 00:00:00.001  1  1 I t: m", now), now + 1000000);
  EXPECT_EQ(time_of_line("--------- beginning of main", now), -1);
  EXPECT_EQ(time_of_line("", now), -1);
}

TEST(LogcatFilter, LetsThroughWhatItNames) {
  const struct {
    std::vector<const char*> arguments;
    bool silent;
    const char* tag;
    int priority;
    bool shown;
  } rows[] = {
      {{}, false, "any", 2, true},
      {{}, true, "any", 7, false},
      {{"Harrowmoss harrowmoss harrowmossd"}, true, "harrowmoss", 2, true},
      {{"Harrowmoss harrowmoss harrowmossd"}, true, "harrowmos", 6, false},
      {{"a:W", "*:S"}, false, "a", 4, false},
      {{"a:W", "*:S"}, false, "a", 5, true},
      {{"a:W", "*:S"}, false, "b", 7, false},
      {{"*:w"}, false, "b", 4, false},
      {{"*"}, false, "b", 2, false},  // a bare star means debug
      {{"*"}, false, "b", 3, true},
      {{"a:S", "a:V"}, false, "a", 2, true},  // the last one counts
      {{"a:*"}, true, "a", 2, true},
  };
  for (const auto& row : rows) {
    LogFilter filter;
    for (const char* argument : row.arguments) ASSERT_TRUE(filter.add(argument)) << argument;
    if (row.silent) filter.silence();
    EXPECT_EQ(filter.shows(row.tag, row.priority), row.shown) << row.tag << row.priority;
  }
  for (const char* bad : {":W", "a:X", "a:WW"}) EXPECT_FALSE(LogFilter().add(bad)) << bad;
}

TEST(LogcatOptions, TakesTheDaemonsCommandLines) {
  using Words = std::vector<std::string>;
  LogcatOptions options;
  std::string error;
  ASSERT_TRUE(parse_logcat_options({"-v", "threadtime,usec", "-s", "Harrowmoss harrowmoss", "-b",
                                    "main", "-f", "/x", "-r", "10240", "-n", "2"},
                                   &options, &error));
  EXPECT_TRUE(options.format.microseconds);
  EXPECT_FALSE(options.filter.shows("other", 7));
  EXPECT_TRUE(options.filter.shows("Harrowmoss", 2));
  EXPECT_EQ(options.buffers, Words{"main"});
  EXPECT_EQ(options.rotate_kb, 10240);
  EXPECT_EQ(options.generations, 2);
  EXPECT_FALSE(options.dump);

  const struct {
    Words arguments;
    Words buffers;
    const char* error;
  } rows[] = {
      {{}, {"main", "system", "crash"}, ""},
      {{"-b", "radio", "-b", "main,radio"}, {"radio", "main"}, ""},
      {{"-dbkernel"}, {"kernel"}, ""},
      {{"-b", "security"}, {"security"}, ""},
      {{"-b", "nosuch"}, {}, "unknown buffer nosuch"},
      {{"-b"}, {}, "option requires an argument -- b"},
      {{"-t", "0"}, {}, "Invalid parameter '0' to -t"},
      {{"-n", "2x"}, {}, "Invalid parameter '2x' to -n"},
      {{"-r", "16"}, {}, "-r requires -f as well"},
      {{"-z"}, {}, "unrecognized option -- z"},
      {{"-v", "pretty"}, {}, "Invalid parameter 'pretty' to -v"},
  };
  for (const auto& row : rows) {
    LogcatOptions parsed;
    error.clear();
    EXPECT_EQ(parse_logcat_options(row.arguments, &parsed, &error), *row.error == '\0');
    EXPECT_EQ(error, row.error);
    if (*row.error == '\0') {
      EXPECT_EQ(parsed.buffers, row.buffers);
    }
  }
}

TEST(Kmsg, BecomesAnEntry) {
  const struct {
    const char* record;
    bool ok;
    int priority;
    const char* tag;
    const char* message;
  } rows[] = {
      {"6,339,5140900,-;usb 1-1: new device\n SUBSYSTEM=usb\n", true, 4, "usb 1-1", "new device"},
      {"3,340,1,-;plain", true, 6, "", "plain"},
      {"30,341,1,-;init: service: x\n", true, 4, "init", "service: x"},  // facility 3, level 6
      {"7,1,2,c;d: e", true, 3, "d", "e"},
      {"0,1,2,-;", true, 7, "", ""},
      {"6,1,2,-", false, 0, "", ""},
      {"x;y", false, 0, "", ""},
  };
  for (const auto& row : rows) {
    LogEntry entry;
    uint64_t sequence = 0;
    ASSERT_EQ(parse_kmsg(row.record, kSecond, &entry, &sequence), row.ok) << row.record;
    if (!row.ok) continue;
    EXPECT_EQ(entry.priority, row.priority) << row.record;
    EXPECT_EQ(entry.tag, row.tag);
    EXPECT_EQ(entry.message, row.message);
  }
  LogEntry entry;
  uint64_t sequence;
  ASSERT_TRUE(parse_kmsg("6,339,5140900,-;a", 2 * kSecond, &entry, &sequence));
  EXPECT_EQ(entry.time_ns, 7140900000);
  EXPECT_EQ(sequence, 339u);
}

TEST(LogOutput, RotatesAsTheRealTool) {
  const struct {
    int generations;
    const char* names;  // after 3 rotations
  } rows[] = {{2, "f f.1 f.2 "}, {5, "f f.1 f.2 f.3 "}, {39, "f f.01 f.02 f.03 "}};
  for (const auto& row : rows) {
    char directory[] = "/tmp/log-output.XXXXXX";
    ASSERT_NE(mkdtemp(directory), nullptr);
    const std::string file = std::string(directory) + "/f";
    ASSERT_TRUE(write_file(file, std::string(512, 'o'), 0644));  // appended to, and counts
    LogOutput output(file, 1, row.generations);
    ASSERT_TRUE(output.open());
    for (const int size : {511, 1, 1025, 2000, 7}) {
      ASSERT_TRUE(output.write(std::string(size, 'x')));
      ASSERT_TRUE(output.rotate_if_full());
    }
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(directory))
      names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    std::string joined;
    for (const std::string& name : names) joined += name + " ";
    EXPECT_EQ(joined, row.names);
    EXPECT_EQ(read_file(file).size(), 7u);
    const std::string newest = file + (row.generations > 9 ? ".01" : ".1");
    EXPECT_EQ(read_file(newest).size(), 2000u);
    std::filesystem::remove_all(directory);
  }
}

TEST(Journal, KeepsArgumentsWholeAcrossALine) {
  const BenchCall calls[] = {
      {12, 1, "/system/bin/sh", {"sh", "-c", "echo a\necho 'b'"}},
      {7, 3, "/system/bin/logcat", {"", "-b", "", "x y"}},
      {7, 3, "/system/bin/log", {}},
  };
  for (const BenchCall& call : calls) {
    std::string line = format_call(call);
    ASSERT_EQ(line.find('\n'), line.size() - 1);
    line.pop_back();
    BenchCall parsed;
    ASSERT_TRUE(parse_call(line, &parsed));
    EXPECT_EQ(parsed.pid, call.pid);
    EXPECT_EQ(parsed.ppid, call.ppid);
    EXPECT_EQ(parsed.program, call.program);
    EXPECT_EQ(parsed.argv, call.argv);
  }
  BenchCall parsed;
  for (const char* bad : {"", "12", "12 x /bin/sh", "12 1", "a 1 /bin/sh"})
    EXPECT_FALSE(parse_call(bad, &parsed)) << bad;
}

TEST(PhoneOptions, SaysWhatItWants) {
  const struct {
    std::vector<std::string> arguments;
    const char* error;
  } rows[] = {
      {{"--data-size", "3GiB", "--sdcard-size", "1m", "--timeout", "9"}, ""},
      {{"--file", "/a=b=/c", "--env", "A=", "--prop", "k=v=w", "--", "--bad"}, ""},
      {{"--data-size", "12q"}, "--data-size wants a size, not \"12q\""},
      {{"--data-size"}, "--data-size wants a size"},
      {{"--prop", "=v"}, "--prop wants KEY=VALUE, not \"=v\""},
      {{"--file", "/a=b"}, "--file wants HOST=PHONE with an absolute PHONE, not \"/a=b\""},
      {{"--timeout", "0"}, "--timeout wants seconds, not \"0\""},
      {{"--no-daemon=1"}, "--no-daemon takes no value"},
      {{"ls"}, "unknown option ls (a command goes after \"--\")"},
  };
  for (const auto& row : rows) {
    PhoneOptions options;
    std::string error;
    EXPECT_EQ(parse_phone_options(row.arguments, &options, &error), *row.error == '\0');
    EXPECT_EQ(error, row.error);
  }
  PhoneOptions options;
  std::string error;
  ASSERT_TRUE(parse_phone_options(rows[1].arguments, &options, &error));
  EXPECT_EQ(options.files[0], (std::pair<std::string, std::string>{"/a=b", "/c"}));
  EXPECT_EQ(options.command, std::vector<std::string>{"--bad"});
}

}  // namespace
