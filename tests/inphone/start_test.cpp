#include <time.h>

#include <regex>

#include "daemon/harrowmoss.h"
#include "debuglog/commands.h"
#include "debuglog/run.h"
#include "model/run_name.h"
#include "selflog/props.h"
#include "storage/store.h"
#include "tests/inphone/inphone.h"

namespace {

using namespace inphone;

constexpr int64_t kMiB = 1 << 20;
constexpr char kShared[] = "0777 1015:1015";
constexpr char kBugreportProp[] = "persist.sys.zelka.harrowmossd.bugreport_enable";

class Start : public ::testing::Test {
 protected:
  void SetUp() override {
    catch_sigchld();
    initialize_globals();
  }
  static void switch_on(const char* types) {
    setprop(kEnableProp, "on");
    setprop(kTypeProp, types);
  }
};

std::string stamp_of(time_t when) {
  tm local = {};
  localtime_r(&when, &local);
  char text[32];
  strftime(text, sizeof(text), "%m-%d_%H-%M-%S", &local);
  return text;
}

TEST_F(Start, ARunIsNamedByItsNumberAndTheLocalTime) {
  const std::pair<int, const char*> rows[] = {
      {1, "1#"}, {12, "12#"}, {2147483647, "2147483647#"}, {0, ""}, {-1, ""}};
  for (const auto& [sequence, prefix] : rows) {
    char name[32];
    const time_t before = time(nullptr);
    const int length = get_current_datetime_with_sequence(name, sequence);
    const time_t after = time(nullptr);
    EXPECT_TRUE(name == prefix + stamp_of(before) || name == prefix + stamp_of(after)) << name;
    EXPECT_EQ(static_cast<size_t>(length), strlen(name));
  }
}

TEST_F(Start, SwitchedOffOnlyPreparesTheStore) {
  for (const char* enable : {"", "off", "On"}) {
    if (enable[0] != '\0') setprop(kEnableProp, enable);
    const PropertiesSince since;
    EXPECT_EQ(start_debug_log(), 0);
    EXPECT_EQ(since.sets(), Texts{"persist.bluetooth.btsnoopenable=true"}) << enable;
  }
  EXPECT_EQ(list("/sdcard"), Texts{"zelkalog"});
  EXPECT_EQ(list("/sdcard/zelkalog"), Texts{});
  EXPECT_EQ(list("/data/vendor/zelkalog/common"), Texts{});
  EXPECT_EQ(get(kCallsLog), "");
  EXPECT_STREQ(s_log_dir_name, "");
}

TEST_F(Start, ARunIsNumberedPublishedAndMadeInThisOrder) {
  switch_on("0");
  setprop(kBugreportProp, "1");
  setprop(kSequenceProp, "41");
  umask(077);
  const PropertiesSince since;
  EXPECT_EQ(start_debug_log(), 0);
  const std::string name = s_log_dir_name;
  EXPECT_TRUE(std::regex_match(name, std::regex(R"(42#\d\d-\d\d_\d\d-\d\d-\d\d)"))) << name;
  EXPECT_EQ(since.sets(),
            (Texts{"persist.bluetooth.btsnoopenable=true", "persist.sys.zklog.dir_sequence=42",
                   "sys.harrowmossd.log_store_path=/sdcard/zelkalog/" + name,
                   "sys.harrowmossd.vendor_log_root_path=/data/vendor/zelkalog/common/" + name,
                   "sys.zelka.fp.dump=on", "sys.zelka.modemdump=on"}));
  EXPECT_TRUE(exists(std::string(s_log_store_path) + "/bugreport/bugreport_start.zip"));
  EXPECT_EQ(s_log_store_path, "/data/misc/zelkalog/" + name);
  EXPECT_EQ(s_vendor_log_root_path, "/data/vendor/zelkalog/common/" + name);
  for (const std::string& dir :
       {std::string("/data/misc/zelkalog"), std::string(s_log_store_path),
        std::string("/data/vendor/zelkalog/common"), std::string(s_vendor_log_root_path),
        std::string("/sdcard/zelkalog"), std::string("/data/media/0/zelkalog")})
    EXPECT_EQ(mode_and_owner(dir), kShared) << dir;
}

TEST_F(Start, TheNumberContinuesFromAnyValue) {
  const struct {
    const char *before, *number;
    long lines;  // that report a bad one
  } rows[] = {{"", "1", 0},
              {"0", "1", 0},
              {"41", "42", 0},
              {"7x", "8", 0},
              {"2147483646", "2147483647", 0},
              {"text", "1", 1},
              {"-1", "1", 1},
              {"2147483647", "1", 1},
              {"99999999999999999999", "1", 1}};
  switch_on("0");
  for (const auto& [before, number, lines] : rows) {
    setprop(kSequenceProp, before);
    start_debug_log();
    EXPECT_EQ(prop(kSequenceProp), number);
    EXPECT_EQ(run_number(s_log_dir_name), atoi(number)) << s_log_dir_name;
    EXPECT_EQ(current_run_name(), s_log_dir_name);
    EXPECT_EQ(logged(std::string("E ") + kSequenceProp + " is " + before + ", taken for 0"), lines)
        << before;
  }
}

TEST_F(Start, ARunBeginsFromOneBlockAboveTheLimitsOn) {
  const struct {
    const char* volume;
    int64_t left;
    const char* refused;  // null: it starts
  } rows[] = {
      {"/sdcard", 64 * kMiB, "W There is not enough disk space left to capture the log"},
      {"/sdcard", 64 * kMiB + 4096, nullptr},
      {"/data", 128 * kMiB,
       "W There is not enough data space left to capture the log, data_space=134217728"},
      {"/data", 128 * kMiB + 4096, nullptr},
  };
  setprop("persist.sys.logger.enable", "off");  // the self log would use blocks
  for (const auto& row : rows) {
    switch_on("0");
    fill_up_to(row.volume, row.left);
    const PropertiesSince since;
    EXPECT_EQ(start_debug_log(), 0);
    const Texts sets = since.sets();
    EXPECT_EQ(sets[0] == "persist.sys.zklog.enable=off", row.refused != nullptr) << row.left;
    EXPECT_EQ(sets.size() == 2, row.refused != nullptr) << row.left;
    EXPECT_TRUE(row.refused == nullptr || logged(row.refused) == 1) << row.left;
    unlink((std::string(row.volume) + "/filler").c_str());
  }
}

TEST_F(Start, StorageOfUnknownSizeDoesNotSwitchOff) {
  remove_sdcard();
  setprop(kEnableProp, "on");
  EXPECT_EQ(create_store_dir_if_needed(), 0);
  detail_avail_storage_space();
  EXPECT_EQ(prop(kEnableProp), "on");
  EXPECT_EQ(logged("E Failed to get file:/sdcard storage space"), 1);
  EXPECT_EQ(list("/data/media/0"), Texts{});
}

TEST_F(Start, TheStoreIsCreatedOnBothPathsOnce) {
  umask(077);
  create_store_dir_if_needed();
  EXPECT_EQ(mode_and_owner("/sdcard/zelkalog"), kShared);
  EXPECT_EQ(logged("W /data/media/0/zelkalog/ not exists, create it."), 1);
  chmod("/sdcard/zelkalog", 0755);
  create_store_dir_if_needed();
  EXPECT_EQ(mode_and_owner("/sdcard/zelkalog"), "0755 1015:1015");
}

TEST_F(Start, OnlyOldModelsAreRelabelled) {
  const char kRelabel[] = "sys.zelka.harrowmossd.restorecon_media_zelkalog";
  restorecon_media_zelkalog();
  EXPECT_EQ(prop(kRelabel), "");
  setprop("persist.sys.zelka.diag_mdlog_use_legacy", "1");
  const PropertiesSince since;
  restorecon_media_zelkalog();
  ASSERT_FALSE(since.sets().empty());
  EXPECT_EQ(since.sets()[0], std::string(kRelabel) + "=1");  // init restores it at once
  EXPECT_EQ(logged("W restorecon zelkalog selabel under media for legacy products"), 1);
}

TEST_F(Start, BugReportsAreWrittenOnlyForExactlyOne) {
  for (const char* off : {"", "0", "2", "true", "on"}) {
    setprop(kBugreportProp, off);
    catch_bugreport(true, "/data/run");
  }
  EXPECT_EQ(shell_commands(), Texts{});
  EXPECT_EQ(logged("E enable=0"), 5);
  setprop(kBugreportProp, "1");
  catch_bugreport(true, "/data/run");
  catch_bugreport(false, "/data/run");
  EXPECT_EQ(shell_commands(), (Texts{"bugreportz -s > /data/run/bugreport/bugreport_start.zip",
                                     "bugreportz -s > /data/run/bugreport/bugreport_stop.zip"}));
  // Both are complete when the calls return.
  EXPECT_EQ(get("/data/run/bugreport/bugreport_start.zip").substr(0, 2), "PK");
  EXPECT_EQ(get("/data/run/bugreport/bugreport_stop.zip").substr(0, 2), "PK");
  EXPECT_EQ(mode_and_owner("/data/run/bugreport"), kShared);
}

}  // namespace
