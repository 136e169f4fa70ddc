#include "client/doctor/doctor.h"

#include <stdio.h>

#include "client/support/json.h"
#include "client/support/text.h"
#include "protocol/names.h"

namespace {

// Each check returns what is wrong, "" when nothing is.

std::string check_space(const HealthFacts& facts) {
  std::string text;
  for (const VolumeReading& volume : facts.volumes) {
    if (!has_room(volume)) text += (text.empty() ? "" : "; ") + space_text(volume);
  }
  return text;
}

std::string check_switch(const HealthFacts& facts) {
  return facts.settings.logging ? "" : "debug logging is switched off";
}

std::string check_storage(const HealthFacts& facts) {
  if (facts.mounted.empty() || facts.mounted[0] != '0') return "";
  return "shared storage is not mounted yet (vold.mounted is 0): no run can be finished there";
}

std::string check_process(const HealthFacts& facts) {
  if (facts.sees_daemon || facts.session.code == kExitOk) return "";
  if (facts.session.code == kExitTimedOut) return "";  // something holds its socket
  return "the daemon does not run: " + facts.session.error;
}

bool is_mute(const HealthFacts& facts) {
  return facts.session.code == kExitTimedOut && facts.other == OtherClient::kNone;
}

std::string check_held(const HealthFacts& facts) {
  return facts.session.code == kExitTimedOut && !is_mute(facts) ? facts.session.error : "";
}

std::string check_answer(const HealthFacts& facts) {
  if (is_mute(facts)) {
    char seconds[24];
    snprintf(seconds, sizeof seconds, "%.1f", static_cast<double>(facts.waited.count()) / 1000);
    return std::string("the daemon does not answer: nothing for ") + seconds +
           " s, and no other client is connected; it hangs, or works on a request whose client has "
           "gone";
  }
  const bool odd = facts.session.code == kExitBadReply;
  const bool shut = facts.session.code == kExitNoConnection && facts.sees_daemon;
  return odd || shut ? "the daemon runs, but no session can be opened: " + facts.session.error : "";
}

std::string check_mask_text(const HealthFacts& facts) {
  const std::string& text = facts.type_text;
  if (text.empty() || text.find_first_not_of("0123456789") == std::string::npos) return "";
  return "the logger types \"" + text + "\" are no decimal number; the daemon reads " +
         std::to_string(facts.settings.types);
}

std::string check_mask(const HealthFacts& facts) {
  int32_t known = 0;
  for (const NamedBit& type : kLoggerTypeNames) known |= type.mask;
  if ((facts.settings.types & known) != 0) return "";
  return "no logger type is selected (mask " + std::to_string(facts.settings.types) +
         "): a run stays empty";
}

std::string check_files(const HealthFacts& facts) {
  std::string text;
  for (const MissingFile& file : facts.missing) {
    text += (text.empty() ? "" : ", ") + file.path + " (for " + file.needed_for + ")";
  }
  return text.empty() ? "" : "not there or not usable: " + text;
}

// True when the monitor is meant to run; its condition is stricter than that of logging.
bool wants_monitor(const HealthFacts& facts) {
  return facts.sees_daemon && facts.settings.deletion && facts.enable == "on";
}

std::string check_monitor(const HealthFacts& facts) {
  return wants_monitor(facts) && !facts.sees_monitor
             ? "debug logging is on, but the size monitor is gone: nothing keeps the quota"
             : "";
}

std::string check_lost_run(const HealthFacts& facts) {
  if (facts.lost_run.empty()) return "";
  return "the directory of the captured run is gone, new lines are lost: " + facts.lost_run;
}

std::string check_odd_switch(const HealthFacts& facts) {
  if (!facts.settings.logging || facts.enable == "on") return "";
  return "the switch is \"" + facts.enable +
         "\", not exactly \"on\": logging runs, but without a size monitor";
}

std::string check_logcats(const HealthFacts& facts) {
  const bool wanted = facts.settings.logging && (facts.settings.types & kTypeMobile) != 0;
  return wanted && facts.sees_daemon && !facts.sees_logcats
             ? "debug logging is on with mobile, but no logcat of it runs"
             : "";
}

std::string check_deletion(const HealthFacts& facts) {
  return facts.settings.deletion ? ""
                                 : "old runs are not removed (persist.sys.zelka.log.del is not "
                                   "true), as after a test run: the store may fill";
}

std::string check_left_behind(const HealthFacts& facts) {
  std::string text;
  for (const std::string& path : facts.left_behind) text += (text.empty() ? "" : ", ") + path;
  return text.empty() ? "" : "finished runs never reached shared storage: " + text;
}

std::string check_self_log(const HealthFacts& facts) {
  return facts.self_log ? "" : "the self log is switched off: what the daemon does is not recorded";
}

constexpr struct {
  const char* id;
  std::string (*check)(const HealthFacts& facts);
  const char* remedy;
} kChecks[] = {
    {"no-daemon", check_process,
     "look at `getprop init.svc.harrowmossd` and the kernel log; `start harrowmossd` as root"},
    {"not-answering", check_answer, "run this as root; restart the daemon when it goes on"},
    {"held", check_held,
     "close the other client (the app, a stuck harrowmossctl), or wait; --timeout waits longer"},
    {"space", check_space,
     "make room (`harrowmossctl du`, `pack` and delete runs), then start logging again: the daemon "
     "switched it off"},
    {"storage", check_storage, "unlock the phone once after its boot, so that storage is mounted"},
    {"missing-files", check_files, "the system image is incomplete: flash one that has them"},
    {"mask-text", check_mask_text, "`harrowmossctl start TYPES` writes a proper number"},
    {"mask", check_mask, "`harrowmossctl start TYPES` with types of `harrowmossctl types`"},
    {"switch", check_switch, "`harrowmossctl start TYPES`"},
    {"odd-switch", check_odd_switch, "`harrowmossctl stop`, then start again"},
    {"no-logcat", check_logcats, "`harrowmossctl stop`, then start again"},
    {"no-monitor", check_monitor, "`harrowmossctl stop`, then start again"},
    {"lost-run", check_lost_run, "`harrowmossctl stop`, then start again"},
    {"deletion", check_deletion,
     "`setprop persist.sys.zelka.log.del true`, then stop and start logging"},
    {"left-behind", check_left_behind,
     "make room on /sdcard, then `harrowmossctl stop`: it moves them; `pack RUN -o -` needs no "
     "room"},
    {"self-log", check_self_log, "`setprop persist.sys.logger.enable on`"},
};

}  // namespace

std::vector<Finding> judge_health(const HealthFacts& facts) {
  std::vector<Finding> found;
  for (const auto& row : kChecks) {
    const std::string text = row.check(facts);
    if (!text.empty()) found.push_back({row.id, text, row.remedy});
  }
  return found;
}

int run_doctor(const Invocation& call, Environment& env) {
  const std::vector<Finding> found = judge_health(read_health(env, after(call.timeout)));
  JsonWriter json;
  json.begin_object().member("command", "doctor").key("findings").begin_array();
  std::string text = found.empty() ? "nothing is wrong: logs are being written\n" : "";
  for (const Finding& entry : found) {
    json.begin_object().member("id", entry.id).member("text", entry.text);
    json.member("remedy", entry.remedy).end_object();
    char head[24];
    snprintf(head, sizeof head, "%-14s ", entry.id);
    text +=
        head + printable(entry.text) + "\n" + std::string(15, ' ') + "-> " + entry.remedy + "\n";
  }
  json.end_array().end_object();
  fputs((call.json ? json.text() + "\n" : text).c_str(), env.out);
  return found.empty() ? kExitOk : kExitFailed;
}
