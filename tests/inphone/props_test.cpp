#include "selflog/props.h"

#include "tests/inphone/inphone.h"

namespace {

using namespace inphone;

TEST(Props, IntegersAreTheNumberThatTheValueBeginsWith) {
  EXPECT_EQ(get_int_prop("bench.unset", 9), 9);
  const std::pair<const char*, int> rows[] = {
      {"12", 12}, {"0", 0},  {"-3", -3}, {"7 files", 7}, {"0x10", 0},
      {"abc", 0}, {" 5", 5}, {"", 9},    {"+4", 4},      {"2147483647", 2147483647}};
  for (const auto& [value, expected] : rows) {
    setprop("bench.int", value);
    EXPECT_EQ(get_int_prop("bench.int", 9), expected) << value;
  }
}

TEST(Props, CountsOutOfRangeGiveTheDefaultAndOneLogLine) {
  const struct {
    const char* value;
    int count;
    long lines;
  } rows[] = {
      {"", 20, 0},    {"0", 0, 0},           {"7x", 7, 0},          {"2147483647", 2147483647, 0},
      {"-1", 20, 1},  {"2147483648", 20, 1}, {"4294967297", 20, 1}, {"99999999999999999999", 20, 1},
      {"much", 20, 1}};
  for (const auto& row : rows) {
    setprop("bench.count", row.value);
    EXPECT_EQ(get_count_prop("bench.count", 20, 2147483647), row.count) << row.value;
    EXPECT_EQ(logged(std::string("E bench.count is ") + row.value + ", taken for 20"), row.lines);
  }
}

TEST(PropsDeathTest, ADefaultOfMoreThanSevenCharactersAborts) {
  EXPECT_EQ(get_int_prop("bench.unset", 9999999), 9999999);
  EXPECT_EQ(get_int_prop("bench.unset", -999999), -999999);
  EXPECT_EXIT(get_int_prop("bench.unset", 10000000), ::testing::KilledBySignal(SIGABRT), "");
  EXPECT_EXIT(get_int_prop("bench.unset", -1000000), ::testing::KilledBySignal(SIGABRT), "");
}

TEST(Props, TextsFallBackToTheirDefault) {
  EXPECT_EQ(get_string_prop("bench.unset", ""), "");
  EXPECT_EQ(get_string_prop("bench.unset", "def"), "def");
  const std::string longest(91, 'x');
  for (const std::string& value : {std::string("true"), std::string(" "), longest}) {
    setprop("bench.text", value);
    EXPECT_EQ(get_string_prop("bench.text", "def"), value);
  }
  setprop("bench.text", "");
  EXPECT_EQ(get_string_prop("bench.text", "def"), "def");
}

// The four switches and the mask with almost valid values.
TEST(Props, EachSwitchHasItsOwnValuesForOn) {
  const struct {
    const char* key;
    bool (*asked)();
    std::vector<const char*> on, off;
  } rows[] = {
      {kEnableProp, is_logger_enabled, {"on", "only"}, {"On", "", "o", "1", " on", "off"}},
      {"sys.poweroffcharge.control", is_poweroffcharge, {"on", "onx"}, {"On", "", "1", "off"}},
      {"persist.sys.zelka.cts.mode", is_in_cts, {"1", "-1"}, {"0", "", "true"}},
      {"sys.zelka.cts.mode", is_in_cts, {"2"}, {"0", "", "yes"}},
      {"sys.zelka.monkey", is_in_monkey, {"true"}, {"True", "true ", "trueish", "1", ""}},
      {kTypeProp, [] { return has_logger_type(2); }, {"3", "65538"}, {"abc", "0x3", "1024", "0"}},
      {kTypeProp, [] { return get_logger_types() == 1; }, {"1", ""}, {"3", "x"}},
  };
  EXPECT_EQ(get_logger_types(), 1);  // unset
  for (const auto& row : rows) {
    for (const bool on : {true, false}) {
      for (const char* value : on ? row.on : row.off) {
        setprop(row.key, value);
        EXPECT_EQ(row.asked(), on) << row.key << "=" << value;
      }
    }
  }
}

}  // namespace
