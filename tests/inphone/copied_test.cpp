// Copy, then delete: if the copy fails, the source must stay.
#include "storage/copied.h"

#include "feedback/feedback.h"
#include "tests/inphone/inphone.h"

namespace {

using namespace inphone;

constexpr char kPower[] = "/sdcard/Android/data/.harrowmoss/zklog/feedback/power/";
constexpr char kDatabase[] = "/data/aee_exp/db.fatal.00";
constexpr char kSnoop[] = "/data/misc/bluetooth/logs/snoops/hci.log";
constexpr char kBootFail[] = "/sdcard/Android/data/.harrowmoss/general/boot_fail.log";

TEST(Copied, MeansEveryNameAndSize) {
  put("/data/s/a", "12345");
  put("/data/s/sub/b", "1");
  put("/data/s/.hidden", "x");
  const struct {
    const char* change;  // of a whole copy in /data/p/s
    bool tree, pattern;  // is everything copied of /data/s, and of /data/s/*
  } rows[] = {
      {":", true, true},
      {"echo more >> /data/p/s/a", false, false},
      {": > /data/p/s/sub/b", false, false},
      {"rm /data/p/s/.hidden", false, true},
      {"rm -r /data/p/s/sub; echo 1 > /data/p/s/sub", false, false},
      {"rm /data/p/s/a; mkdir /data/p/s/a", false, false},
      {"rm /data/p/s/a; ln -s /data/s/a /data/p/s/a", false, false},
      {"mkdir /data/p/s/more", true, true},
      {"rm -r /data/p", false, false},
  };
  for (const auto& row : rows) {
    ASSERT_EQ(
        system(("rm -rf /data/p; mkdir /data/p; cp -a /data/s /data/p; " + std::string(row.change))
                   .c_str()),
        0);
    EXPECT_EQ(is_copied("/data/s", "/data/p/s"), row.tree) << row.change;
    EXPECT_EQ(is_copied("/data/s/*", "/data/p/s"), row.pattern) << row.change;
  }
  EXPECT_TRUE(is_copied("/data/none", "/data/p/none"));
}

TEST(Copied, AGetterDeletesItsSourceOnlyThen) {
  const char* const sources[] = {"/data/tmp", kDatabase, kSnoop, kBootFail};
  constexpr int kGetters = 0x1000 | 0x2000 | 0x8000 | 0x10;
  const struct {
    const char* before;       // breaks the destinations
    const char* destination;  // and those in the working area
    bool deletes;
  } rows[] = {
      {"echo > /data/file; rm -rf /data/misc/zelkalog/btlog; echo > /data/misc/zelkalog/btlog",
       "/data/file/x", false},
      {"rm /data/file; mkdir -p /data/p; echo > /data/p/db.fatal.00.x; mkdir /data/p/db.fatal.00; "
       "echo > /data/p/power; echo > /data/p/general",
       "/data/p", false},
      {"rm -rf /data/p /data/misc/zelkalog/btlog; mkdir /data/p", "/data/p", true},
  };
  for (const auto& row : rows) {
    for (const char* source : sources) put(source, source);
    ASSERT_EQ(system(row.before), 0);
    EXPECT_EQ(get_feedback_log(kGetters, row.destination), 0) << row.destination;
    for (const char* source : {kDatabase, kSnoop, kBootFail})
      EXPECT_EQ(get(source), row.deletes ? "" : source) << row.before;
    EXPECT_EQ(exists(kPower), !row.deletes) << row.before;
  }
  EXPECT_EQ(logged_beginning("E not all of "), 8);
}

}  // namespace
