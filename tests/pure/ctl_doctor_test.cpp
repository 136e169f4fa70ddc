// `doctor`: the findings from values, and the facts from a phone's tree.

#include "client/doctor/doctor.h"
#include "tests/pure/ctl_support.h"

namespace {

HealthFacts healthy() {
  HealthFacts facts;
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

// clang-format off
const struct {
  std::vector<std::string> ids;
  const char* message;
  std::function<void(HealthFacts*)> harm;
} kFaults[] = {
    {{}, "", [](auto*) {}},
    {{}, "", [](auto* f) { f->sees_daemon = f->sees_monitor = f->sees_logcats = false; }},  // hidden
    {{"odd-switch"}, "\"only\"", [](auto* f) { f->enable = "only", f->sees_monitor = false; }},
    {{"deletion"}, "fill", [](auto* f) { f->settings.deletion = false; }},
    {{"missing-files"}, "/system/bin/sh (for everything), /x.sh (for net)",
     [](auto* f) { f->missing = {{"/system/bin/sh", "everything"}, {"/x.sh", "net"}}; }},
    {{"no-daemon"}, "does not run: cannot connect", [](auto* f) {
       f->sees_daemon = f->sees_monitor = f->sees_logcats = false;
       f->session = {kExitNoConnection, "cannot connect"}; }},
    {{"not-answering"}, "cannot connect",
     [](auto* f) { f->session = {kExitNoConnection, "cannot connect"}; }},
    {{"held"}, "not served", [](auto* f) {
       f->session = {kExitTimedOut, "not served"};
       f->other = OtherClient::kConnected; }},
    {{"not-answering"}, "does not answer: nothing for 10.0 s, and no other client", [](auto* f) {
       f->session = {kExitTimedOut, "not served"};
       f->other = OtherClient::kNone;
       f->waited = std::chrono::milliseconds(10040); }},
    {{"lost-run"}, "are lost: /data/misc/zelkalog/1#x",
     [](auto* f) { f->lost_run = "/data/misc/zelkalog/1#x"; }},
    {{"space"}, "/sdcard: 100 bytes wanted, 99 free",
     [](auto* f) { f->volumes[0] = {"/sdcard", 100, 99, true}; }},
    {{"no-monitor"}, "quota", [](auto* f) { f->sees_monitor = false; }},
    {{"no-logcat"}, "mobile", [](auto* f) { f->sees_logcats = false; }},
    {{"mask"}, "mask 0", [](auto* f) { f->settings.types = 0; }},
    {{"mask"}, "65536", [](auto* f) { f->settings.types = 0x10000; }},  // only an option
};
// clang-format on

TEST(CtlDoctor, FindsEachFaultAndNothingElse) {
  for (const auto& row : kFaults) {
    HealthFacts facts = healthy();
    row.harm(&facts);
    std::vector<std::string> ids;
    std::string message;
    for (const Finding& found : judge_health(facts)) {
      ids.push_back(found.id);
      message += found.text;
      EXPECT_STRNE(found.remedy, "") << row.message;
    }
    EXPECT_EQ(ids, row.ids) << row.message;
    EXPECT_TRUE(contains(message, row.message)) << message;
  }
}

}  // namespace
