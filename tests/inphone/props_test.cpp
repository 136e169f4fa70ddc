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

TEST(Props, TheTypeMaskIsDecimalText) {
  EXPECT_EQ(get_logger_types(), 1);
  EXPECT_TRUE(has_logger_type(1));
  EXPECT_FALSE(has_logger_type(2));
  const struct {
    const char* value;
    int types;
    bool has_modem;  // 0x2
    bool has_any;
  } rows[] = {{"3", 3, true, true},        {"abc", 0, false, false}, {"0x3", 0, false, false},
              {"1024", 1024, false, true}, {"0", 0, false, false},   {"65538", 65538, true, true}};
  for (const auto& row : rows) {
    setprop(kTypeProp, row.value);
    EXPECT_EQ(get_logger_types(), row.types) << row.value;
    EXPECT_EQ(has_logger_type(2), row.has_modem) << row.value;
    EXPECT_EQ(has_logger_type(0x7fffffff), row.has_any) << row.value;
  }
}

TEST(Props, SwitchesAreOnWhenTheirValueBeginsWithOn) {
  const struct {
    const char* key;
    bool (*asked)();
  } switches[] = {{kEnableProp, is_logger_enabled},
                  {"sys.poweroffcharge.control", is_poweroffcharge}};
  const std::pair<const char*, bool> rows[] = {
      {"on", true}, {"only", true}, {"onx", true}, {"On", false},  {"ON", false},
      {"", false},  {"o", false},   {"1", false},  {" on", false}, {"off", false}};
  for (const auto& each : switches) {
    EXPECT_FALSE(each.asked()) << each.key;
    for (const auto& [value, on] : rows) {
      setprop(each.key, value);
      EXPECT_EQ(each.asked(), on) << each.key << "=" << value;
    }
  }
}

TEST(Props, EitherPropertyMeansATestSuiteRuns) {
  EXPECT_FALSE(is_in_cts());
  const struct {
    const char* persistent;
    const char* current;
    bool in_cts;
  } rows[] = {{"0", "2", true},  {"1", "0", true}, {"-1", "", true},
              {"0", "0", false}, {"", "", false},  {"true", "yes", false}};
  for (const auto& row : rows) {
    setprop("persist.sys.zelka.cts.mode", row.persistent);
    setprop("sys.zelka.cts.mode", row.current);
    EXPECT_EQ(is_in_cts(), row.in_cts) << row.persistent << " " << row.current;
  }
}

TEST(Props, AMonkeyIsExactlyTrue) {
  EXPECT_FALSE(is_in_monkey());
  const std::pair<const char*, bool> rows[] = {
      {"true", true}, {"True", false}, {"true ", false}, {"trueish", false}, {"1", false}};
  for (const auto& [value, in_monkey] : rows) {
    setprop("sys.zelka.monkey", value);
    EXPECT_EQ(is_in_monkey(), in_monkey) << value;
  }
}

}  // namespace
