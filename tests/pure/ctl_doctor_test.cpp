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
    {"switch that begins with on",
     [](health_facts* f) { f->enable = "only", f->sees_monitor = false; },
     {"odd-switch"},
     "\"only\""},
    {"deletion", [](health_facts* f) { f->settings.deletion = false; }, {"deletion"}, "fill"},
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
    {"monitor", [](health_facts* f) { f->sees_monitor = false; }, {"no-monitor"}, "quota"},
    {"logcats", [](health_facts* f) { f->sees_logcats = false; }, {"no-logcat"}, "mobile"},
    {"mask 0", [](health_facts* f) { f->settings.types = 0; }, {"mask"}, "mask 0"},
    {"only an option", [](health_facts* f) { f->settings.types = 0x10000; }, {"mask"}, "65536"},
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

}  // namespace
