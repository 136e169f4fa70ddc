// Logger types and feedback selections by name.
#include <stdio.h>

#include <iterator>

#include "client/status/status.h"
#include "client/support/json.h"
#include "model/masks.h"

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

int run_types(const Invocation& call, Environment& env) {
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
