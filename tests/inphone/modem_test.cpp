#include "catchers/app_files.h"
#include "catchers/catchers.h"
#include "debuglog/modem_logger.h"
#include "debuglog/run.h"
#include "tests/inphone/inphone.h"

namespace {

using namespace inphone;

constexpr char kDir[] = "/data/vendor/zelkalog/common/1#run/modem";
constexpr char kFilesProp[] = "persist.sys.harrowmossd.mdlog_counts";

class Modem : public ::testing::Test {
 protected:
  void SetUp() override {
    strcpy(s_vendor_log_root_path, "/data/vendor/zelkalog/common/1#run");
    put(kDiagCfg, "first");
    put(kDiagMdm2Cfg, "second");
  }
};

TEST_F(Modem, PreparesTheLoggerAndThenSwitchesItOn) {
  const struct {
    const char *second_modem, *legacy, *source, *target, *state;
  } rows[] = {
      {"", "", kDiagCfg, "/data/vendor/zelkalog/.DIAG.cfg",
       "sys.zelka.diag_mdlog_over_qdss_state=1"},
      {"2", "1", kDiagCfg, "/data/vendor/zelkalog/.DIAG.cfg", "sys.zelka.diag_mdlog_state=1"},
      {"1", "2", kDiagMdm2Cfg, "/data/vendor/zelkalog/.DIAGMDM2.cfg",
       "sys.zelka.diag_mdlog_over_qdss_state=1"},
  };
  setprop(kFilesProp, "7");
  for (const auto& row : rows) {
    setprop("persist.sys.zklog.wifi_mdm2", row.second_modem);
    setprop("persist.sys.zelka.diag_mdlog_use_legacy", row.legacy);
    const PropertiesSince since;
    EXPECT_EQ(catcher_modem_log("/data/not/used", "modem"), 0);
    EXPECT_EQ(since.sets(),
              (Texts{std::string("sys.harrowmossd.diag_mdlog_path=") + kDir,
                     std::string("sys.harrowmossd.diag_mdlog_cfg=") + row.target,
                     std::string("sys.harrowmossd.diag_mdlog_src_cfg=") + row.source, row.state}));
    EXPECT_EQ(shell_commands().back(), std::string("cp ") + row.source + " " + row.target);
    EXPECT_EQ(get(row.target), get(row.source));
  }
  EXPECT_EQ(mode_and_owner(kDir), "0777 1015:1015");
  EXPECT_FALSE(exists("/data/not"));
}

TEST_F(Modem, AtLeastOneFileIsKept) {
  const struct {
    const char *before, *after;
  } rows[] = {{"", "25"}, {"0", "25"}, {"-3", "25"}, {"1", "1"}};
  for (const auto& row : rows) {
    setprop(kFilesProp, row.before);
    const PropertiesSince since;
    catcher_modem_log("", "modem");
    EXPECT_EQ(prop(kFilesProp), row.after) << row.before;
    // The changed number is set before the logger is started.
    EXPECT_EQ(since.sets()[0] == std::string(kFilesProp) + "=25", strcmp(row.after, "25") == 0);
  }
  EXPECT_EQ(logged("W set default mdlog counts 25"), 3);
}

TEST_F(Modem, OnlyAFileIsCopiedAsTheMask) {
  unlink(kDiagCfg);
  ASSERT_EQ(mkfifo(kDiagCfg, 0666), 0);
  EXPECT_EQ(catcher_modem_log("", "modem"), 0);
  EXPECT_EQ(shell_commands(), Texts());
  EXPECT_EQ(logged(std::string("E not a file: ") + kDiagCfg), 1);
  EXPECT_EQ(prop(kModemStateProp), "1");
}

TEST(LegacyModemLogger, BelongsToOldModels) {
  const struct {
    const char *model, *forced, *legacy;
  } rows[] = {
      {"QZ101A", "", "yes"},    {"QZ101A-EU", "", "no"},  // exact match
      {"QZ102A-EU", "", "yes"}, {"QZ103A", "", "yes"},   {"QZ104AB", "", "yes"},
      {"QZ105A", "", "no"},     {" QZ102A", "", "no"},   {"QZ201A", "1", "yes"},
      {"QZ201A", "2", "no"},    {"QZ101A", "0", "yes"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(with_properties({{"ro.product.model", row.model},
                               {"persist.sys.zelka.diag_mdlog_use_legacy", row.forced}},
                              [] { return std::string(is_legacy_diag_mdlog() ? "yes" : "no"); }),
              row.legacy)
        << row.model << " " << row.forced;
  }
  EXPECT_EQ(logged("V product_model=QZ102A-EU ,legacy=1"), 1);
}

TEST(StopModemLog, SwitchesOffOnlyWhatRuns) {
  const struct {
    const char *legacy, *old_state, *new_state;
    Texts sets;
  } rows[] = {{"0", "1", "1", {"sys.zelka.diag_mdlog_over_qdss_state=0"}},
              {"1", "1", "1", {"sys.zelka.diag_mdlog_state=0"}},
              {"0", "1", "0", {}},
              {"1", "0", "1", {}},
              {"0", "", "10", {}}};
  for (const auto& row : rows) {
    setprop("persist.sys.zelka.diag_mdlog_use_legacy", row.legacy);
    setprop(kLegacyModemStateProp, row.old_state);
    setprop(kModemStateProp, row.new_state);
    const PropertiesSince since;
    stop_modem_log();
    EXPECT_EQ(since.sets(), row.sets) << row.legacy << row.old_state << row.new_state;
  }
}

}  // namespace
