#include "client/runs/run_check.h"

#include <fnmatch.h>
#include <stdio.h>

#include <algorithm>

#include "client/support/files.h"
#include "client/support/json.h"
#include "client/support/text.h"
#include "protocol/names.h"

namespace {

constexpr const char* kKindNames[] = {"missing", "empty", "hole"};
constexpr const char* kEveryRun = "every run";

enum class Promise {
  kFilled,   // at least one file, none of them empty
  kLogged,   // the same once the run is complete: logcat writes blocks of 4 KiB
  kPresent,  // at least one file, which may be empty
  kUsual,    // may be absent for a good reason; not empty
};

// clang-format off

// What a logger type leaves in its run. `types` 0 stands for every run.
constexpr struct {
  int32_t types;
  const char* pattern;  // of paths below the run; '*' also matches '/'
  Promise kept;
  bool at_stop;         // written by the stop
  const char* absent;   // a good reason, for kUsual
} kPieces[] = {
    {kTypeMobile,      "mobile/*-main.txt",                      Promise::kLogged,  false, ""},
    {kTypeMobile,      "mobile/*-events.txt",                    Promise::kLogged,  false, ""},
    {kTypeMobile,      "mobile/*-system.txt",                    Promise::kLogged,  false, ""},
    {kTypeMobile,      "mobile/*-radio.txt",                     Promise::kPresent, false, ""},
    {kTypeMobile,      "mobile/*-crash.txt",                     Promise::kPresent, false, ""},
    {kTypeMobile,      "mobile/*-kernel.txt",                    Promise::kLogged,  false, ""},
    {kTypeMobile,      "mobile/logcat_control_message-*.txt",    Promise::kFilled,  false, ""},
    {kTypeMobile,      "system.prop",                            Promise::kFilled,  false, ""},
    {kTypeMobile,      "others.prop",                            Promise::kFilled,  false, ""},
    {kTypeModem,       "modem/*",                                Promise::kFilled,  true,  ""},
    {kTypeNet,         "net/*-netlog.pcap",                      Promise::kFilled,  false, ""},
    {kTypeNet,         "net/iptables-start.txt",                 Promise::kFilled,  false, ""},
    {kTypeNet,         "net/iptables-stop.txt",                  Promise::kUsual,   true,  "not written when a change of types ended the run"},
    {kTypePower,       "power/*",                                Promise::kFilled,  true,  ""},
    {kTypePower,       "fg/*",                                   Promise::kFilled,  false, ""},
    {kTypeFingerprint, "fingerprint/qsee_log.txt",               Promise::kPresent, false, ""},
    {kTypeFingerprint, "fingerprint/tzbsp.txt",                  Promise::kUsual,   false, "only with persist.sys.zklog.tzbsp.enable"},
    {kTypeWifi,        "wlan_logs/*",                            Promise::kUsual,   true,  "the vendor service brought no file"},
    {kTypeTouch,       "touch/event.txt",                        Promise::kPresent, false, ""},
    {kTypeMpssDump,    "mpss_dump/*",                           Promise::kUsual,   true,  "the watchdog had nothing to capture"},
    {0,                "system_stop.prop",                       Promise::kFilled,  true,  ""},
    {0,                "others_stop.prop",                       Promise::kFilled,  true,  ""},
};

// clang-format on

const char* type_name(int32_t mask) {
  const char* name = logger_type_name(mask);
  return name == nullptr ? kEveryRun : name;
}

std::string types_text(const RunReport& run) {
  return mask_text(kLoggerTypeWords, run.types) + (run.types_known ? "" : " (seen)");
}

std::string report_text(const RunReport& run, const std::vector<CheckFinding>& found, int pieces,
                        bool wrong) {
  std::string text = printable(run.name) + ", " + state_name(run) + ", " + types_text(run) + "\n";
  for (const CheckFinding& entry : found) {
    char head[64];
    snprintf(head, sizeof head, "  %-8s %-12s ", entry.note ? "note" : kKindNames[entry.what],
             entry.type.c_str());
    const char* kind = entry.note && entry.what == CheckFinding::kMissing ? " is missing" : "";
    text +=
        head + printable(entry.path) + kind + (entry.text.empty() ? "" : ": " + entry.text) + "\n";
  }
  return text + (wrong ? "not as promised" : "as promised") + " (" + std::to_string(pieces) +
         " pieces looked for)\n";
}

std::string report_json(const RunReport& run, const std::vector<CheckFinding>& found, int pieces,
                        bool wrong) {
  JsonWriter json;
  json.begin_object().member("command", "check").member("run", run.name);
  json.member("state", state_name(run)).member("mask", run.types);
  json.member("types", mask_text(kLoggerTypeWords, run.types));
  json.flag("types_known", run.types_known).member("pieces", pieces).flag("as_promised", !wrong);
  json.key("findings").begin_array();
  for (const CheckFinding& entry : found) {
    json.begin_object().member("kind", kKindNames[entry.what]).member("type", entry.type);
    json.member("path", entry.path).member("text", entry.text).flag("note", entry.note);
    json.end_object();
  }
  json.end_array().end_object();
  return json.text() + "\n";
}

}  // namespace

std::vector<CheckFinding> check_content(const std::map<std::string, int64_t>& files, int32_t types,
                                        bool stopped, int* pieces) {
  std::vector<CheckFinding> found;
  *pieces = 0;
  for (const auto& piece : kPieces) {
    if (piece.types != 0 && (piece.types & types) == 0) continue;
    if (piece.at_stop && !stopped) continue;
    ++*pieces;
    const bool may_be_empty =
        piece.kept == Promise::kPresent || (piece.kept == Promise::kLogged && !stopped);
    bool there = false;
    for (const auto& [path, bytes] : files) {
      if (fnmatch(piece.pattern, path.c_str(), 0) != 0) continue;
      there = true;
      if (bytes != 0 || may_be_empty) continue;
      found.push_back({CheckFinding::kEmpty, type_name(piece.types), path, "", false});
    }
    if (there) continue;
    found.push_back({CheckFinding::kMissing, type_name(piece.types), piece.pattern, piece.absent,
                     piece.kept == Promise::kUsual});
  }
  return found;
}

std::vector<CheckFinding> check_holes(const RunReport& run) {
  std::vector<CheckFinding> found;
  const auto note = [&](const std::string& path, const std::string& text, bool only_note) {
    found.push_back({CheckFinding::kHole, path.substr(0, path.find('/')), path, text, only_note});
  };
  for (const std::string& path : run.replaced) {
    note(path, "its logcat was replaced, lines just before it may be lost", false);
  }
  for (const RotatedFile& file : run.rotated) {
    const std::string kept = std::to_string(file.generations) + " rotated out, ";
    if (file.lost == LostLines::kYes) note(file.path, kept + "older lines are lost", false);
    if (file.lost == LostLines::kUnknown) {
      note(file.path, kept + "whether older lines are lost cannot be told", true);
    }
  }
  return found;
}

int run_check(const Invocation& call, Environment& env) {
  RunReport run;
  std::string error;
  if (!find_run(read_runs(env), call.arguments[0], &run, &error)) {
    return fail(call, env, kExitUsage, error);
  }
  std::map<std::string, int64_t> files;
  for (const std::string& place : directories_of(run)) {
    walk_files(place, [&](const std::string& path, int64_t bytes) { files[path] = bytes; });
  }
  int pieces = 0;
  const bool stopped = run.state != RunState::kCapturing;
  std::vector<CheckFinding> found = check_content(files, run.types, stopped, &pieces);
  for (const CheckFinding& hole : check_holes(run)) found.push_back(hole);
  const bool wrong = std::any_of(found.begin(), found.end(),
                                 [](const CheckFinding& entry) { return !entry.note; });
  fputs((call.json ? report_json : report_text)(run, found, pieces, wrong).c_str(), env.out);
  return wrong ? kExitFailed : kExitOk;
}
