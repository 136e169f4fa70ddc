#include <math.h>
#include <stdlib.h>

#include "client/commands.h"
#include "client/connection/requests.h"
#include "client/support/json.h"
#include "client/support/text.h"
#include "model/version.h"

namespace {

constexpr double kTimeoutMax = 86400;  // seconds; a day

bool parse_timeout(const std::string& text, Invocation* call, std::string* error) {
  char* end = nullptr;
  const double seconds = strtod(text.c_str(), &end);
  const bool number = !text.empty() && *end == '\0' && isfinite(seconds);
  if (!number || seconds < 0.001 || seconds > kTimeoutMax) {
    *error = "--timeout takes seconds, 0.001 to 86400, not \"" + text + "\"";
    return false;
  }
  call->timeout = std::chrono::milliseconds(static_cast<int64_t>(seconds * 1000));
  return true;
}

constexpr struct {
  const char* name;
  bool Invocation::*field;
} kSwitches[] = {
    {"--json", &Invocation::json},         {"--dry-run", &Invocation::dry_run},
    {"--yes", &Invocation::yes},           {"--progress", &Invocation::progress},
    {"--help", &Invocation::help},         {"-h", &Invocation::help},
    {"--estimate", &Invocation::estimate}, {"-E", &Invocation::extended},
    {"--count", &Invocation::count},       {"--follow", &Invocation::follow},
    {"--view", &Invocation::view},         {"--version", &Invocation::version},
};

// Options with a value: the next word, or after "=".
constexpr struct {
  const char* name;
  std::string Invocation::*field;  // null: --timeout, which is a number
} kValues[] = {
    {"--timeout", nullptr},
    {"--select", &Invocation::select},
    {"--output", &Invocation::output},
    {"-o", &Invocation::output},
    {"--since", &Invocation::since},
    {"--until", &Invocation::until},
    {"--around", &Invocation::around},
    {"--buffer", &Invocation::buffer},
    {"--tag", &Invocation::tag},
    {"--level", &Invocation::level},
    {"--pid", &Invocation::pid},
    {"--grep", &Invocation::grep},
};

bool set_switch(const std::string& word, Invocation* call) {
  for (const auto& row : kSwitches) {
    if (word != row.name) continue;
    call->*row.field = true;
    return true;
  }
  return false;
}

// Reads the option in words[*at], and its value, which may be the next word.
bool read_value(const std::vector<std::string>& words, size_t* at, Invocation* call,
                std::string* error) {
  const std::string& word = words[*at];
  const size_t equals = word.find('=');
  const std::string name = word.substr(0, equals);
  for (const auto& row : kValues) {
    if (name != row.name) continue;
    std::string value;
    if (equals != std::string::npos) {
      value = word.substr(equals + 1);
    } else if (*at + 1 < words.size()) {
      value = words[++*at];
    }
    if (value.empty()) {
      *error = name + " needs a value";
      return false;
    }
    if (row.field == nullptr) return parse_timeout(value, call, error);
    call->*row.field = value;
    return true;
  }
  *error = "unknown option " + word;
  return false;
}

// Splits the words into options, the command's name, and its arguments.
bool split_words(const std::vector<std::string>& words, Invocation* call, std::string* name,
                 std::string* error) {
  bool options = true;
  for (size_t i = 0; i < words.size(); i++) {
    const std::string& word = words[i];
    if (options && word == "--") {
      options = false;
    } else if (!options || word.size() < 2 || word[0] != '-') {
      name->empty() ? * name = word : call->arguments.emplace_back(word);
    } else if (!set_switch(word, call) && !read_value(words, &i, call, error)) {
      return false;
    }
  }
  return true;
}

std::string wrong_use(const Invocation& call) {
  const Command& what = *call.what;
  const size_t count = call.arguments.size();
  if (count < what.min_arguments || count > what.max_arguments) {
    return std::string("usage: harrowmossctl ") + what.name + " " + what.arguments;
  }
  bool lines = call.extended || call.count || call.follow;
  for (const auto field :
       {&Invocation::since, &Invocation::until, &Invocation::around, &Invocation::buffer,
        &Invocation::tag, &Invocation::level, &Invocation::pid, &Invocation::grep}) {
    lines = lines || !(call.*field).empty();
  }
  const struct {
    bool given;
    unsigned option;
    const char* error;
  } special[] = {
      {!call.select.empty(), kTakesSelect, "--select is for feedback"},
      {call.estimate, kTakesEstimate, "--estimate is for feedback"},
      {!call.output.empty(), kTakesOutput, "-o is for pack and view"},
      {call.view, kTakesView, "--view is for pack"},
      {lines, kTakesLines, "options that choose lines are for log"},
      {call.dry_run, kTakesDryRun, "--dry-run is for commands that send a request"},
  };
  for (const auto& row : special) {
    if (row.given && (what.options & row.option) == 0) return row.error;
  }
  return "";
}

// "" when the command may run, else what it does and that it needs --yes.
std::string missing_consent(const Invocation& call, const Environment& env) {
  const Command& what = *call.what;
  if (!what.dangerous || call.yes || call.dry_run) return "";
  const std::string loss = loss_while_logging(what.request, env);
  return std::string(what.name) + ": " + what.summary + (loss.empty() ? "" : "; " + loss) +
         "; add --yes to do it";
}

int show_version(const Invocation& call, Environment& env) {
  const bool json = call.json;
  fprintf(env.out, "%s%s%s\n", json ? "{\"version\":\"" : "harrowmossctl ", kReleaseVersion,
          json ? "\"}" : "");
  return kExitOk;
}

}  // namespace

bool parse_command_line(const std::vector<std::string>& words, Invocation* call,
                        std::string* error) {
  std::string name;
  if (!split_words(words, call, &name, error)) return false;
  if (name.empty()) {
    *error = "no command; see harrowmossctl --help";
    return call->help || call->version;
  }
  call->what = find_command(name);
  if (call->what == nullptr) {
    *error = "there is no command \"" + name + "\"; see harrowmossctl --help";
    return false;
  }
  if (call->help || call->version) return true;
  if (call->timeout.count() == 0) call->timeout = std::chrono::seconds(call->what->timeout_s);
  *error = wrong_use(*call);
  return error->empty();
}

int fail(const Invocation& call, Environment& env, ExitCode code, const std::string& text) {
  fprintf(env.err, "harrowmossctl: %s\n", printable(text).c_str());
  if (call.json) {
    JsonWriter json;
    json.begin_object().key("command");
    call.what == nullptr ? json.null() : json.string(call.what->name);
    json.member("error", text).member("exit", static_cast<int64_t>(code)).end_object();
    fprintf(env.out, "%s\n", json.text().c_str());
  }
  return code;
}

int run_client(const std::vector<std::string>& words, Environment& env) {
  Invocation call;
  std::string error;
  if (!parse_command_line(words, &call, &error)) return fail(call, env, kExitUsage, error);
  if (call.help) return show_help(call, call.what, env);
  if (call.version) return show_version(call, env);
  error = missing_consent(call, env);
  return error.empty() ? call.what->run(call, env) : fail(call, env, kExitUsage, error);
}
