// `du`, and the eviction rule of the size monitor and the client.
#include <fcntl.h>

#include "client/space/quota.h"
#include "model/tree_size.h"
#include "phone/util.h"
#include "tests/pure/ctl_support.h"

namespace {

constexpr int64_t kMiB = 1 << 20;

// Following the links along every path would not end.
TEST(CtlQuota, EveryCommandCountsWhatTheMonitorCounts) {
  BenchClient client;
  const std::string run = "data/misc/zelkalog/3#01-02_03-04-05";
  constexpr int kDirectories = 12;
  for (int i = 0; i < kDirectories; i++) client.tree.put(run + "/" + std::to_string(i) + "/a", "x");
  for (int i = 0; i < kDirectories * kDirectories; i++) {
    const std::string to = std::to_string(i % kDirectories);
    std::filesystem::create_directory_symlink(
        "../" + to,
        client.env.root + "/" + run + "/" + std::to_string(i / kDirectories) + "/to" + to);
  }
  client.tree.put("data/misc/zelkalog/.moving-3#01-02_03-04-05/a", std::string(1 << 20, 'x'));
  client.properties["sys.harrowmossd.log_store_path"] = "/sdcard/zelkalog/3#01-02_03-04-05";
  int64_t working = 0, captured = 0;
  ASSERT_TRUE(tree_size(client.env.working, nullptr, &working));
  ASSERT_TRUE(tree_size(client.env.root + "/" + run, nullptr, &captured));
  EXPECT_LT(working, 1 << 20);
  const std::pair<const char*, std::string> rows[] = {
      {"du", "\"working_bytes\":" + std::to_string(working)},
      {"status", "\"working_bytes\":" + std::to_string(captured)},
      {"status", "\"used_bytes\":" + std::to_string(working)},
      {"runs", "\"bytes\":" + std::to_string(captured)},
  };
  for (const auto& [command, part] : rows) {
    EXPECT_EQ(client.run({command, "--json"}), kExitOk);
    EXPECT_TRUE(contains(client.out, part + ",")) << command << part << " in\n" << client.out;
  }
}

struct EvictionRow {
  const char* what;
  std::vector<std::string> store, working;
  int current;
  bool logging;
  const char* next;  // below the tree's root, "" nothing, "*" everything
};

const EvictionRow kEvictions[] = {
    {"nothing is there", {}, {}, 3, true, ""},
    {"the oldest number, not the first name", {"10#a", "9#b"}, {"11#c"}, 11, true, "store/9#b"},
    {"of two with one number, the first", {"9#a", "9#b"}, {}, 11, true, "store/9#a"},
    {"007 is 7", {"8#a", "007#b"}, {}, 9, true, "store/007#b"},
    {"0 hides no other", {"0#a", "1#b"}, {}, 3, true, "store/1#b"},
    {"0 never goes", {"0#a"}, {"2#b"}, 3, true, "working/2#b"},
    {"other names never go", {"traces", "#1", "1", "x1#", "1#a\nb"}, {}, 3, true, ""},
    {"hostile names do", {"1#;touch x", "2#b"}, {}, 3, true, "store/1#;touch x"},
    {"finished runs first", {"5#a"}, {"4#b", "6#c"}, 6, true, "store/5#a"},
    {"then those left in the working area", {}, {"4#b", "6#c"}, 6, true, "working/4#b"},
    {"only the current one is left", {}, {"6#c"}, 6, true, "*"},
    {"logging off: the last one stays", {"6#c"}, {}, 6, false, ""},
    {"logging off: an older last one goes", {"5#c"}, {}, 6, false, "store/5#c"},
    {"logging off: one of two goes", {"5#b", "6#c"}, {}, 6, false, "store/5#b"},
    {"logging off: the working area stays", {}, {"4#b"}, 6, false, ""},
};

TEST(Eviction, TakesTheOldestRunFinishedOnesFirst) {
  for (const EvictionRow& row : kEvictions) {
    OldestRun store, working;
    for (const std::string& name : row.store) store.add(name.c_str());
    for (const std::string& name : row.working) working.add(name.c_str());
    for (const bool unknown : {false, true}) {
      store.unknown = unknown;
      const EvictionPlan plan = plan_eviction(store, working, row.current, row.logging, -1);
      std::string next;
      if (plan.what == Eviction::kStoreRun) next = "store/" + store.name;
      if (plan.what == Eviction::kWorkingRun) next = "working/" + working.name;
      if (plan.what == Eviction::kRestart) next = "*";
      // A restart deletes every finished run: never while the store cannot be listed.
      const bool withheld = plan.what == Eviction::kRestartWithheld;
      EXPECT_EQ(withheld, unknown && row.next == std::string("*")) << row.what;
      EXPECT_EQ(withheld ? "*" : next, row.next) << row.what;
    }
  }
}

// A tree without a size is judged by its last size.
TEST(Eviction, RemembersTheOldestNumber) {
  const OldestRun none;
  EXPECT_EQ(plan_eviction(none, none, 6, true, 6).what, Eviction::kRestart);
  EXPECT_EQ(plan_eviction(none, none, 6, true, 5).what, Eviction::kNothing);
  EXPECT_EQ(plan_eviction(none, none, 6, true, 5).oldest, 5);
  EXPECT_EQ(plan_eviction({1, 4, "4#a", false}, none, 6, true, 5).oldest, 4);
}

TEST(CtlDu, ShowsQuotaRoomAndTheNextToGo) {
  BenchClient client;
  client.tree.put("sdcard/zelkalog/2#01-02_03-04-05/b", std::string(3 << 20, 'x'));
  client.tree.put("data/misc/zelkalog/3#01-02_03-04-05/a", "x");
  client.properties = {{"persist.sys.zklog.enable", "on"},
                       {"persist.sys.zklog.type", "66"},
                       {"persist.sys.zelka.log.size", "0"},
                       {"persist.sys.zklog.dir_sequence", "3"}};
  client.free_bytes = {{"/sdcard", 67108864}, {"/data", -1}};
  EXPECT_EQ(client.run({"du"}), kExitOk);
  for (const char* part :
       {"used:       3 MiB of 0 MiB, over quota\n", "three quarters", "one run every 5 s",
        "/sdcard/zelkalog/2#01-02_03-04-05, 3.0 MiB\n",
        "/sdcard:    too little to log, 67108865 bytes wanted, 67108864 free\n",
        "/data:      room to log, 134217729 bytes wanted, free bytes unknown\n"}) {
    EXPECT_TRUE(contains(client.out, part)) << part << " in\n" << client.out;
  }
  EXPECT_EQ(client.run({"du", "--json"}), kExitOk);
  for (const char* part :
       {"\"used_mib\":3,\"limit_mib\":0,\"over_quota\":true,\"data_extremely_low\":false",
        "{\"path\":\"/data\",\"wanted\":134217729,\"free\":null,\"enough\":true}"}) {
    EXPECT_TRUE(contains(client.out, part)) << part << " in\n" << client.out;
  }
  const std::pair<std::map<std::string, std::string>, const char*> rows[] = {
      {{{"persist.sys.zelka.log.del", "false"}}, "removal:    switched off"},
      {{{"persist.sys.zklog.enable", "off"}}, "removal:    none while debug logging is off"},
      {{{"persist.sys.zelka.log.size", "20"}}, "removal:    none: below the quota"},
      {{{"persist.sys.zelka.log.size", "20"}}, "used:       3 MiB of 15360 MiB"},
  };
  for (const auto& [changes, message] : rows) {
    const auto kept = client.properties;
    for (const auto& [key, value] : changes) client.properties[key] = value;
    EXPECT_EQ(client.run({"du"}), kExitOk);
    EXPECT_TRUE(contains(client.out, message)) << client.out;
    client.properties = kept;
  }
  // Nearly full, apart from the preallocated blocks of a logcat.
  client.free_bytes["/data"] = 128 * kMiB - 65536;
  const std::string log = "data/misc/zelkalog/3#01-03_00-00-00/mobile/main.txt";
  client.tree.put(log, "x");
  for (const bool low : {true, false}) {
    EXPECT_EQ(client.run({"du"}), kExitOk);
    EXPECT_EQ(contains(client.out, "everything, at once"), low) << client.out;
    const Fd file(open((client.tree.root() + "/" + log).c_str(), O_WRONLY | O_CLOEXEC));
    ASSERT_EQ(fallocate(file.get(), FALLOC_FL_KEEP_SIZE, 0, kMiB), 0);
  }
}

}  // namespace
