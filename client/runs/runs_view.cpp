// The output of `runs`.
#include <stdio.h>

#include "client/runs/runs.h"
#include "client/support/files.h"
#include "client/support/json.h"
#include "client/support/text.h"
#include "protocol/names.h"

namespace {

constexpr const char* kStateNames[] = {"complete", "capturing", "left-behind"};
constexpr const char* kLostNames[] = {"no", "yes", "unknown"};
constexpr const char* kLostTexts[] = {"nothing lost yet", "older lines are lost",
                                      "whether older lines are lost cannot be told"};

}  // namespace

const char* state_name(const RunReport& run) {
  return kStateNames[static_cast<int>(run.state)];
}

std::string runs_text(const std::vector<RunReport>& runs) {
  if (runs.empty()) return "no runs\n";
  std::string text = "   SEQ  DATE            STATE        SIZE        TYPES, BUILD\n";
  for (const RunReport& run : runs) {
    const std::string sequence = run.sequence < 0 ? "-" : std::to_string(run.sequence);
    char head[128];
    snprintf(head, sizeof head, "%6s  %s  %-11s  %-10s  ", sequence.c_str(), run.date.c_str(),
             state_name(run), size_text(run.bytes).c_str());
    text += head + mask_text(kLoggerTypeWords, run.types) + (run.types_known ? "" : " (seen)");
    if (!run.build.empty()) text += ", " + printable(run.build);
    text += "\n";
    const std::string indent(8, ' ');
    if (run.state == RunState::kLeftBehind) text += indent + "in " + printable(run.working) + "\n";
    for (const std::string& path : run.replaced) {
      text += indent + printable(path) +
              ": its logcat was replaced, lines just before it may be lost\n";
    }
    for (const RotatedFile& file : run.rotated) {
      text += indent + printable(file.path) + ": " + std::to_string(file.generations) +
              " rotated out, up to ." + std::to_string(file.highest) + "; " +
              kLostTexts[static_cast<int>(file.lost)] + "\n";
    }
  }
  return text;
}

std::string runs_json(const std::vector<RunReport>& runs) {
  JsonWriter json;
  json.begin_object().member("command", "runs").key("runs").begin_array();
  for (const RunReport& run : runs) {
    json.begin_object().member("name", run.name).key("sequence");
    run.sequence < 0 ? json.null() : json.number(run.sequence);
    json.member("date", run.date).member("state", state_name(run));
    json.optional("store", run.store);
    json.optional("working", run.working);
    json.member("mask", run.types).member("types", mask_text(kLoggerTypeWords, run.types));
    json.flag("types_known", run.types_known);
    json.optional("build", run.build);
    json.member("bytes", run.bytes).key("replaced").begin_array();
    for (const std::string& path : run.replaced) json.string(path);
    json.end_array().key("rotated").begin_array();
    for (const RotatedFile& file : run.rotated) {
      json.begin_object().member("path", file.path).member("generations", file.generations);
      json.member("highest", file.highest);
      json.member("lost", kLostNames[static_cast<int>(file.lost)]).end_object();
    }
    json.end_array().end_object();
  }
  json.end_array().end_object();
  return json.text() + "\n";
}

int run_runs(const Invocation& call, Environment& env) {
  const std::vector<RunReport> runs = read_runs(env);
  fputs((call.json ? runs_json(runs) : runs_text(runs)).c_str(), env.out);
  return kExitOk;
}
