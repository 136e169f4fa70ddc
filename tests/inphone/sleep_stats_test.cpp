#include "catchers/sleep_stats.h"

#include <memory>

#include "tests/inphone/inphone.h"
#include "tests/support/sleep_texts.h"

// In a phone because the parsers log every line.
namespace {

using namespace inphone;

constexpr size_t kPiece = 511;  // longer lines are split

// Passes `text` to a parser line by line, each in a heap block: sanitizers see reads beyond it.
template <typename Parser>
SleepCounters parse(const std::string& text, SleepCounters counters = {}) {
  Parser parser;
  for (size_t at = 0; at < text.size();) {
    const size_t newline = text.find('\n', at);
    const size_t to_end = (newline == std::string::npos ? text.size() : newline + 1) - at;
    const size_t size = std::min(to_end, kPiece);
    const std::unique_ptr<char, decltype(&free)> line(strndup(text.data() + at, size), free);
    parser.line(line.get(), &counters);
    at += size;
  }
  return counters;
}

const std::string kNul(1, '\0');

TEST(AosdCxsdParser, TakesTheFirstCountBehindTheName) {
  const struct {
    const char* what;
    std::string text;
    int aosd, cxsd;
  } rows[] = {
      {"a real file", system_sleep_text(1204, 1187), 1204, 1187},
      {"a count beside its name is not taken", "aosd count:12\n", -1, -1},
      {"the next line with a count is", "aosd count:12\nnothing\ncount:13\n", 13, -1},
      {"both names wait", "aosd\ncxsd\ncount:5\n", 5, 5},
      {"one name takes the other's line", "cxsd\naosd count:3\ncount:4\n", 4, 3},
      {"the key ends the file", "aosd\ncount", 0, -1},
      {"the key ends its line", "aosd\ncount\n12\n", 0, -1},
      {"the separator ends its line", "aosd\ncount:\n12\n", 0, -1},
      {"a key that ends with the line buffer",
       "aosd\n" + std::string(kPiece - 5, 'x') + "count:77\n", 0, -1},
      {"a value cut by the line buffer", "aosd\n" + std::string(kPiece - 8, 'x') + "count:7789\n",
       77, -1},
      {"a NUL ends its line", "aosd\n" + kNul + "count:5\ncount:6\n", 6, -1},
      {"bytes that are no text", "\xff\xfe\x01 aosd \x80\n\x1b[31mcount:4\xc3\n", 4, -1},
  };
  for (const auto& row : rows) {
    const SleepCounters counters = parse<AosdCxsdParser>(row.text);
    EXPECT_EQ(counters.aosd_count, row.aosd) << row.what;
    EXPECT_EQ(counters.cxsd_count, row.cxsd) << row.what;
    EXPECT_EQ(counters.vmin_count, -1) << row.what;
  }
}

TEST(VminParser, SearchesBelowItsHeading) {
  const struct {
    const char* what;
    std::string text;
    int vmin;
  } rows[] = {
      {"a real file", rpm_stats_text(4711), 4711},
      {"the first line holds everything", "vmin count:5\n", -1},
      {"the heading's own count is not taken", "x\nvmin count:5\ncount:6\n", 6},
      {"the key ends the file", "vmin\ncount", 0},
      {"cut in the middle of the key", "vmin\n" + std::string(kPiece - 2, ' ') + "count:5\n", -1},
      {"a NUL hides the heading", "x" + kNul + "vmin\ncount:5\n", -1},
  };
  for (const auto& row : rows)
    EXPECT_EQ(parse<VminParser>(row.text).vmin_count, row.vmin) << row.what;
}

TEST(MasterParser, SearchesBelowTheModemOnly) {
  const struct {
    const char* what;
    std::string text;
    int xo, shutdowns;
  } rows[] = {
      {"a real file", rpm_master_text(0x1f2e, 0x9c), 0x1f2e, 0x9c},
      {"other processors only", rpm_master_part("APSS", 5, 6) + rpm_master_part("ADSP", 7, 8), -1,
       -1},
      {"the heading is the first line", "MPSS\nxo_count:0x10\nnumshutdowns:0x11\n", 0x10, 0x11},
      {"behind the shutdowns nothing counts", "MPSS\nnumshutdowns:0x11\nxo_count:0x10\n", -1, 0x11},
      {"no 0 behind the word", "MPSS\nnumshutdowns:5\nxo_count:0x4\n", -1, -1},
      {"the keys end their lines", "MPSS\nxo_count\nnumshutdowns\n", 0, -1},
      {"without the prefix", "MPSS\nxo_count:1f\n", 0x1f, -1},
      {"all bits set is no number of wakings", "MPSS\nxo_count:0xffffffff\n", -1, -1},
      {"the word cut by the line buffer",
       "MPSS\n" + std::string(kPiece - 3, 'x') + "numshutdowns:0x5\nxo_count:0x4\n", 4, -1},
  };
  for (const auto& row : rows) {
    const SleepCounters counters = parse<MasterParser>(row.text);
    EXPECT_EQ(counters.xo_count, row.xo) << row.what;
    EXPECT_EQ(counters.mpss_numshutdowns, row.shutdowns) << row.what;
  }
}

TEST(RpmhParser, SearchesBelowTheModemOnly) {
  const struct {
    const char* what;
    std::string text;
    int sleeps;
  } rows[] = {
      {"a real file", rpmh_master_text(0x1f30), 0x1f30},
      {"other processors only", rpmh_master_part("APSS", 5) + rpmh_master_part("CDSP", 6), -1},
      {"the first line holds everything", "MPSS Sleep Count:0x5\n", -1},
      {"the key ends the file", "MPSS\nSleep Count", 0},
      {"cut by the line buffer", "MPSS\n" + std::string(kPiece - 6, 'x') + "Sleep Count:0x5\n", -1},
      {"a NUL before the key", "MPSS\n" + kNul + "Sleep Count:0x5\n", -1},
  };
  for (const auto& row : rows)
    EXPECT_EQ(parse<RpmhParser>(row.text).sleep_count, row.sleeps) << row.what;
}

class SleepFiles : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const char* file : {kRpmStatsFile, kSystemSleepFile, kRpmMasterFile, kRpmhMasterFile})
      unlink(file);
    s_sleep_counters = SleepCounters();
  }
  static void read_all() {
    read_vmin_or_aosd_and_cxsd();
    read_numshutdowns_and_xo_count();
    read_sleep_count();
  }
  static std::string counters() {
    const SleepCounters& c = s_sleep_counters;
    char text[128];
    snprintf(text, sizeof(text), "%d %d,%d %d,%d %d", c.vmin_count, c.aosd_count, c.cxsd_count,
             c.xo_count, c.mpss_numshutdowns, c.sleep_count);
    return text;
  }
};

TEST_F(SleepFiles, EachModelHasSomeOfThem) {
  const struct {
    bool rpm, system, master, rpmh;
    const char* counters;  // vmin aosd,cxsd xo,numshutdowns sleep
  } rows[] = {
      {false, false, false, false, "-1 -1,-1 -1,-1 -1"},
      {true, false, false, false, "-1 -1,-1 -1,-1 -1"},  // vmin only with the newer file
      {false, true, false, false, "-1 2,3 -1,-1 -1"},
      {true, true, false, false, "1 -1,-1 -1,-1 -1"},  // and then instead of it
      {false, false, true, false, "-1 -1,-1 4,5 -1"},
      {false, false, false, true, "-1 -1,-1 -1,-1 6"},
      {true, true, true, true, "1 -1,-1 4,5 6"},
  };
  for (const auto& row : rows) {
    SetUp();
    if (row.rpm) put(kRpmStatsFile, rpm_stats_text(1));
    if (row.system) put(kSystemSleepFile, system_sleep_text(2, 3));
    if (row.master) put(kRpmMasterFile, rpm_master_text(4, 5));
    if (row.rpmh) put(kRpmhMasterFile, rpmh_master_text(6));
    read_all();
    EXPECT_EQ(counters(), row.counters);
  }
  for (const std::string& text : log_texts()) EXPECT_EQ(text[0], 'D') << text;
}

TEST_F(SleepFiles, ACounterKeepsItsValueWhenItsFileGoes) {
  put(kSystemSleepFile, system_sleep_text(2, 3));
  put(kRpmhMasterFile, rpmh_master_text(6));
  read_all();
  unlink(kSystemSleepFile);
  put(kRpmhMasterFile, "MPSS\n");
  read_all();
  EXPECT_EQ(counters(), "-1 2,3 -1,-1 6");
  unlink(kRpmhMasterFile);
  ASSERT_EQ(mkdir(kRpmhMasterFile, 0755), 0);  // can be opened, not read
  read_all();
  EXPECT_EQ(counters(), "-1 2,3 -1,-1 6");
}

}  // namespace
