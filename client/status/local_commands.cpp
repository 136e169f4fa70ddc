#include "client/status/local_commands.h"

#include <stdio.h>

#include <iterator>

#include "client/runs/runs.h"
#include "client/status/status.h"
#include "client/support/json.h"
#include "protocol/protocol.h"

namespace {

constexpr struct {
  const char* title;
  const char* key;
  const NamedBit* rows;
  size_t count;
} kTables[] = {
    {"Logger types, for `start`, in starting order; \"all\" is every one of them:", "logger_types",
     kLoggerTypeNames, std::size(kLoggerTypeNames)},
    {"Options of a start, not part of \"all\":", "start_options", kLoggerOptionNames,
     std::size(kLoggerOptionNames)},
    {"Selections, for `feedback --select`, in collecting order:", "feedback_selections",
     kFeedbackNames, std::size(kFeedbackNames)},
};

}  // namespace

int run_status(const invocation& call, Environment& env) {
  const status_report report = read_status(env);
  fputs((call.json ? status_json(report) : status_text(report)).c_str(), env.out);
  return kExitOk;
}

int run_runs(const invocation& call, Environment& env) {
  const std::vector<RunReport> runs = read_runs(env);
  fputs((call.json ? runs_json(runs) : runs_text(runs)).c_str(), env.out);
  return kExitOk;
}

int run_types(const invocation& call, Environment& env) {
  JsonWriter json;
  json.begin_object().member("command", "types");
  std::string text;
  for (const auto& table : kTables) {
    json.key(table.key).begin_array();
    text += std::string(text.empty() ? "" : "\n") + table.title + "\n";
    for (size_t i = 0; i < table.count; i++) {
      const NamedBit& row = table.rows[i];
      json.begin_object().member("mask", row.mask).member("name", row.name);
      json.member("about", row.about).end_object();
      char head[64];
      snprintf(head, sizeof head, "  0x%-6x%-13s", static_cast<unsigned>(row.mask), row.name);
      text += std::string(head) + row.about + "\n";
    }
    json.end_array();
  }
  json.end_object();
  fputs((call.json ? json.text() + "\n" : text).c_str(), env.out);
  return kExitOk;
}

int run_help(const invocation& call, Environment& env) {
  if (call.arguments.empty()) return show_help(call, nullptr, env);
  const Command* what = find_command(call.arguments[0]);
  if (what == nullptr) {
    return fail(call, env, kExitUsage, "there is no command \"" + call.arguments[0] + "\"");
  }
  return show_help(call, what, env);
}
