// Values that survive a wipe, the verdict and identity derived from them, and logs of a phone
// charging while powered off.
#include "debuglog/settings.h"

#include <string.h>

#include "tests/inphone/inphone.h"

namespace {

using namespace inphone;

constexpr char kDir[] = "/persist/harrowmoss";
constexpr char kKey[] = "/persist/harrowmoss/persist.test";
constexpr char kState[] = "/persist/harrowmoss/persist.sys.state";
constexpr size_t kReadable = 91;

// The resulting content of a caller's zeroed buffer of 92 bytes; "-1" for a failure.
std::string stored(const char* key) {
  char buf[kReadable + 1 + 8] = {};
  memset(buf + kReadable + 1, '#', 8);
  if (getPersistProperty(key, buf) != 0) return "-1";
  EXPECT_EQ(std::string(buf + kReadable + 1, 8), "########") << key;
  return buf;
}

TEST(PersistStore, KeepsTheLastValueExactlyAndReads91Bytes) {
  const std::string long_values[] = {std::string(91, 'x'), std::string(92, 'y'),
                                     std::string(5000, 'z')};
  umask(0);
  for (const std::string& value :
       {std::string("two\nlines"), long_values[0], std::string("short"), long_values[1],
        std::string(), long_values[2], std::string("0")}) {
    EXPECT_EQ(setPersistProperty("persist.test", value.c_str()), 0);
    EXPECT_EQ(get(kKey), value);
    EXPECT_EQ(stored("persist.test"), value.substr(0, kReadable));
    EXPECT_EQ(mode_and_owner(kDir), "0700 0:0");
    EXPECT_EQ(mode_and_owner(kKey), "0600 0:0");
    ASSERT_EQ(chmod(kKey, 0666) + chown(kKey, 1015, 1015), 0);  // restored by the next
    umask(0777);
  }
}

TEST(PersistStore, FailuresAreLoggedWithTheirReason) {
  const auto last_is = [](const std::string& text, int error) {
    return log_texts().back() == text + " failed. " + strerror(error);
  };
  EXPECT_EQ(stored("none"), "-1");
  EXPECT_TRUE(last_is("W access /persist/harrowmoss/", ENOENT));
  ASSERT_EQ(mount(nullptr, "/persist", nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr), 0);
  EXPECT_EQ(setPersistProperty("k", "v"), -1);
  EXPECT_EQ(logged("D The dir: /persist/harrowmoss/ is not existed, create it."), 1);
  EXPECT_TRUE(last_is("E mkdir /persist/harrowmoss/", EROFS));
  ASSERT_EQ(mount(nullptr, "/persist", nullptr, MS_REMOUNT | MS_BIND, nullptr), 0);
  std::filesystem::create_directories("/persist/harrowmoss/directory");
  EXPECT_EQ(stored("none"), "-1");
  EXPECT_TRUE(last_is("W open /persist/harrowmoss/none", ENOENT));
  EXPECT_EQ(stored("directory"), "-1");
  EXPECT_TRUE(last_is("E reading data from /persist/harrowmoss/directory", EISDIR));
}

TEST(BuildState, ThePropertyDecidesBeforeTheSizeOfTheSystem) {
  struct statfs system = {};
  ASSERT_EQ(statfs("/system", &system), 0);
  const std::string size =
      std::to_string((system.f_blocks - system.f_bfree) * static_cast<uint64_t>(system.f_bsize));
  const std::string none = "none", marked = "IsRoot:Y";
  const struct {
    const char* property;
    std::string size;  // as provisioned; `none`: not
    int state;
    std::string marker;  // `none`: no file
  } rows[] = {
      {"0", "1", 0, none}, {"3", none, 3, none},         {"abc", "1", 0, none},
      {"", size, 0, none}, {"", size + "\n", 1, marked}, {"", none, 1, marked},
  };
  for (const auto& row : rows) {
    std::filesystem::remove_all(kDir);
    if (row.size != none) put("/persist/harrowmoss/persist.sys.system.size", row.size);
    setprop("plenx_is_root", row.property);
    for (int call = 1; call <= 2; call++) {  // the marker is written at each
      EXPECT_EQ(getBuildState(), row.state) << row.property << " " << row.size;
      EXPECT_EQ(exists(kState) ? get(kState) : none, row.marker) << row.property << " " << row.size;
      unlink(kState);
    }
    EXPECT_EQ(exists(kDir), row.size != none || row.marker != none);  // not opened without need
  }
}

TEST(BuildId, IsTheFingerprintOrWhatItsPartsMakeCutAt91) {
  const std::string full(kReadable, 'f'), brand(84, 'x'), too_long(85, 'x');
  using Properties = std::vector<std::pair<std::string, std::string>>;
  // clang-format off
  const Properties parts = {
      {"ro.product.brand", "b"}, {"ro.product.name", "n"}, {"ro.product.device", "d"},
      {"ro.build.version.release", "13"}, {"ro.build.id", "I"},
      {"ro.build.version.incremental", "7"}, {"ro.build.type", "user"}, {"ro.build.tags", "keys"}};
  // clang-format on
  const std::pair<Properties, std::string> rows[] = {
      {{{"ro.build.fingerprint", full}, {"ro.product.brand", "not me"}}, full},
      {parts, "b/n/d:13/I/7:user/keys"},
      {{}, "//://:/"},
      {{{"ro.product.brand", brand}}, brand + "//://:/"},  // exactly 91
      {{{"ro.product.brand", too_long}}, too_long + "//://:"},
  };
  for (const auto& row : rows) {
    const std::string got = with_properties(row.first, [] {
      char buf[kReadable + 1 + 8] = {};
      const int length = getBuildID(buf);
      return std::to_string(length) + " " + std::string(buf, sizeof(buf));
    });
    std::string expected = row.second;
    expected.resize(kReadable + 1 + 8);  // nothing after it changes
    EXPECT_EQ(got, std::to_string(row.second.size()) + " " + expected);
  }
}

class PowerOffLogs : public ::testing::Test {
 protected:
  static constexpr char kMoved[] = "/data/misc/zelkalog/poweroffcharge";
  const Texts sources_ = {"/cache/zelkalog", "/persist/zelkalog"};
  const std::string failure_ = std::string("E cp poweroffchargelog to ") + kMoved;
};

TEST_F(PowerOffLogs, AreMovedUnlessThePhoneChargesPoweredOffNow) {
  const std::pair<const char*, bool> rows[] = {{"online", false}, {"On", true}, {"", true}};
  for (const auto& [control, moves] : rows) {
    std::filesystem::remove_all(kMoved);
    for (const std::string& source : sources_)
      put(source + source.substr(0, 3) + "/log.txt", source);
    setprop("sys.poweroffcharge.control", control);
    const long before = logged(failure_);
    preProcess();
    for (const std::string& source : sources_) {
      EXPECT_EQ(exists(source), !moves) << control << " " << source;
      EXPECT_EQ(get(kMoved + source.substr(0, 3) + "/log.txt"), moves ? source : "");
    }
    EXPECT_EQ(logged(failure_) - before, moves ? 2 : 0) << control;
    EXPECT_EQ(exists(kMoved), moves) << control;
  }
  EXPECT_EQ(logged("D function invoked, !is_poweroffcharge : 0"), 1);
  EXPECT_EQ(logged("D function invoked, !is_poweroffcharge : 1"), 2);
}

TEST_F(PowerOffLogs, StayWhenTheirCopyFails) {
  put("/cache/zelkalog/log.txt", "kept");
  ASSERT_EQ(mount("/dev/null", "/system/bin/chmod", nullptr, MS_BIND, nullptr), 0);
  preProcess();
  EXPECT_EQ(get("/cache/zelkalog/log.txt"), "kept");
}

// Each stays, with one log line, until its names are free and it is copied completely.
TEST_F(PowerOffLogs, StayWhereACopyWouldReplaceAnotherOrFail) {
  const std::string cache = "/cache/zelkalog/log.txt", persist = "/persist/zelkalog/log.txt";
  const std::string copy = std::string(kMoved) + "/log.txt";
  const struct {
    const char* before;
    std::string cache, persist, copy;  // expected content afterwards
  } rows[] = {
      {":", "", "persist", "cache"},                                        // equal names
      {":", "", "persist", "cache"},                                        // an earlier boot's
      {"echo -n cache > /cache/zelkalog/log.txt", "", "persist", "cache"},  // killed before rm
      {"rm -r /data/misc/zelkalog/poweroffcharge", "", "", "persist"},      // a stop moved them
      {"echo -n new > /cache/zelkalog/log.txt; rm /data/misc/zelkalog/poweroffcharge/log.txt; "
       "mkdir -p /data/misc/zelkalog/poweroffcharge/log.txt",
       "new", "", ""},
      {"rmdir /data/misc/zelkalog/poweroffcharge/log.txt; echo > /cache/zelkalog/.hidden", "", "",
       "new"},
  };
  put(cache, "cache");
  put(persist, "persist");
  for (const auto& row : rows) {
    std::filesystem::create_directories("/cache/zelkalog");
    ASSERT_EQ(system(row.before), 0);
    preProcess();
    EXPECT_EQ(get(cache), row.cache) << row.before;
    EXPECT_EQ(get(persist), row.persist) << row.before;
    EXPECT_EQ(get(copy), row.copy) << row.before;
  }
  EXPECT_TRUE(exists("/cache/zelkalog/.hidden"));
  EXPECT_EQ(
      logged("E /persist/zelkalog stays: other logs have its names in " + std::string(kMoved)), 3);
}

}  // namespace
