// `doctor`: each finding from values, and the facts from a phone's tree.
#include <gtest/gtest.h>

#include <functional>

#include "client/doctor.h"
#include "tests/pure/ctl_support.h"

namespace {

health_facts healthy() {
  health_facts facts;
  facts.settings.logging = true;
  facts.settings.types = 0x5;
  facts.settings.deletion = true;
  facts.enable = "on";
  facts.type_text = "5";
  facts.mounted = "1";
  facts.volumes = {{"/sdcard", 100, 100, true}, {"/data", 200, 200, true}};
  facts.sees_daemon = facts.sees_monitor = facts.sees_logcats = true;
  return facts;
}

const struct {
  const char* what;
  std::function<void(health_facts*)> harm;
  std::vector<std::string> ids;
  const char* said;
} kFaults[] = {
    {"nothing", [](health_facts*) {}, {}, ""},
    {"switch",
     [](health_facts* f) { f->settings.logging = false, f->enable = "off"; },
     {"switch"},
     "off"},
    {"switch that begins with on",
     [](health_facts* f) { f->enable = "only", f->sees_monitor = false; },
     {"odd-switch"},
     "\"only\""},
    {"one byte short",
     [](health_facts* f) { f->volumes[0].available = 99; },
     {"space"},
     "/sdcard: 100 bytes wanted, 99 free"},
    {"short in both",
     [](health_facts* f) { f->volumes[0].available = 0, f->volumes[1].available = 1; },
     {"space"},
     "/sdcard: 100 bytes wanted, 0 free; /data: 200 bytes wanted, 1 free"},
    {"a volume that cannot be asked keeps nobody from logging",
     [](health_facts* f) {
       f->volumes[0] = {"/sdcard", 100, 0, false};
     },
     {},
     ""},
    {"deletion", [](health_facts* f) { f->settings.deletion = false; }, {"deletion"}, "fill"},
    {"storage", [](health_facts* f) { f->mounted = "0"; }, {"storage"}, "not mounted"},
    {"mounted somehow", [](health_facts* f) { f->mounted = "true"; }, {}, ""},
    {"files",
     [](health_facts* f) {
       f->missing = {{"/system/bin/sh", "everything"}, {"/x.sh", "net"}};
     },
     {"missing-files"},
     "/system/bin/sh (for everything), /x.sh (for net)"},
    {"no daemon",
     [](health_facts* f) {
       f->sees_daemon = f->sees_monitor = f->sees_logcats = false;
       f->session = {EXIT_NO_CONNECTION, "cannot connect"};
     },
     {"no-daemon"},
     "does not run: cannot connect"},
    {"processes are hidden from us",
     [](health_facts* f) { f->sees_daemon = f->sees_monitor = f->sees_logcats = false; },
     {},
     ""},
    {"no right to connect",
     [](health_facts* f) {
       f->session = {EXIT_NO_CONNECTION, "cannot connect"};
     },
     {"not-answering"},
     "cannot connect"},
    {"another protocol",
     [](health_facts* f) {
       f->session = {EXIT_BAD_REPLY, "version 2"};
     },
     {"not-answering"},
     "version 2"},
    {"held",
     [](health_facts* f) {
       f->session = {EXIT_TIMED_OUT, "held"};
     },
     {"held"},
     "held"},
    {"held, processes hidden",
     [](health_facts* f) {
       f->sees_daemon = f->sees_monitor = f->sees_logcats = false;
       f->session = {EXIT_TIMED_OUT, "held"};
     },
     {"held"},
     "held"},
    {"monitor", [](health_facts* f) { f->sees_monitor = false; }, {"no-monitor"}, "quota"},
    {"a monitor is not wanted without deletion",
     [](health_facts* f) { f->sees_monitor = f->settings.deletion = false; },
     {"deletion"},
     ""},
    {"logcats", [](health_facts* f) { f->sees_logcats = false; }, {"no-logcat"}, "mobile"},
    {"logcats are for mobile only",
     [](health_facts* f) { f->sees_logcats = false, f->settings.types = 4; },
     {},
     ""},
    {"self log", [](health_facts* f) { f->self_log = false; }, {"self-log"}, "self log"},
    {"left behind",
     [](health_facts* f) {
       f->left_behind = {"/data/1", "/data/2"};
     },
     {"left-behind"},
     "/data/1, /data/2"},
    {"mask 0", [](health_facts* f) { f->settings.types = 0; }, {"mask"}, "mask 0"},
    {"only an option", [](health_facts* f) { f->settings.types = 0x10000; }, {"mask"}, "65536"},
    {"hexadecimal mask",
     [](health_facts* f) { f->type_text = "0x3", f->settings.types = 0; },
     {"mask-text", "mask"},
     "\"0x3\""},
    {"unset mask", [](health_facts* f) { f->type_text = ""; }, {}, ""},
};

TEST(CtlDoctor, FindsEachFaultAndNothingElse) {
  for (const auto& row : kFaults) {
    health_facts facts = healthy();
    row.harm(&facts);
    std::vector<std::string> ids;
    std::string said;
    for (const finding& found : judge_health(facts)) {
      ids.push_back(found.id);
      said += found.text;
      EXPECT_STRNE(found.remedy, "") << row.what;
    }
    EXPECT_EQ(ids, row.ids) << row.what;
    EXPECT_TRUE(holds(said, row.said)) << row.what << ": " << said;
  }
}

TEST(CtlDoctor, LooksAtFilesRunsAndProperties) {
  bench_client client;
  for (const char* tool : {"sh", "cp", "mv", "rm", "chmod", "logcat"}) {
    const std::string path = "system/bin/" + std::string(tool);
    client.tree.put(path, "");
    std::filesystem::permissions(client.tree.root() + "/" + path,
                                 std::filesystem::perms::owner_all);
  }
  client.properties = {{"vold.mounted", "1"},
                       {"persist.sys.logger.enable", "on"},
                       {"persist.sys.zklog.enable", "on"},
                       {"persist.sys.zklog.type", "13"}};
  EXPECT_EQ(client.run({"doctor"}), EXIT_FAILED);
  for (const char* piece :
       {"no-daemon ", "get_net_log.sh (for net), ", "power_logs_stop.sh (for power)\n", "-> "}) {
    EXPECT_TRUE(holds(client.out, piece)) << piece << " in\n" << client.out;
  }
  EXPECT_FALSE(holds(client.out, "/bin/")) << client.out;

  // A tool that nobody may execute is as good as none.
  std::filesystem::permissions(client.tree.root() + "/system/bin/cp",
                               std::filesystem::perms::owner_read);
  client.tree.put("data/misc/zelkalog/4#03-07_14-05-09/x", "");
  client.properties["persist.sys.zklog.type"] = "1";
  EXPECT_EQ(client.run({"doctor", "--json"}), EXIT_FAILED);
  for (const char* piece :
       {"\"id\":\"missing-files\",\"text\":\"not there or not usable: /system/bin/cp (for "
        "everything)\"",
        "\"id\":\"left-behind\",\"text\":", "4#03-07_14-05-09\""}) {
    EXPECT_TRUE(holds(client.out, piece)) << piece << " in\n" << client.out;
  }
}

}  // namespace
