// The help texts: of the whole program, and of one command.
#include <stdio.h>

#include "client/commands.h"
#include "client/support/json.h"

namespace {

std::string general_help() {
  std::string text =
      "usage: harrowmossctl [OPTIONS] COMMAND [ARGUMENTS]\n\n"
      "Talks to the diagnostic log daemon of this phone.\n\nCommands:\n";
  for (const Command& row : kCommands) {
    char line[160];
    const std::string usage = std::string(row.name) + " " + row.arguments;
    snprintf(line, sizeof line, "  %-33s %s\n", usage.c_str(), row.summary);
    text += line;
  }
  return text +
         "\nOptions:\n"
         "  --json              one JSON object instead of text\n"
         "  --timeout SECONDS   wait so long for the answer (queries 10, copies 120, "
         "stop 540, start 960)\n"
         "  --dry-run           show the request's bytes and what they mean; send nothing\n"
         "  --yes               do what can destroy something\n"
         "  --progress          show the daemon's steps also when this is no terminal\n"
         "  --select LIST       what `feedback` collects\n"
         "  --estimate          show the size of what `feedback` would collect; send nothing\n"
         "  -o, --output FILE   where `pack` and `view` write to; - is standard output\n"
         "  --view              `pack` adds the page of `view`\n"
         "  --since, --until, --around, --buffer, --tag, --level, --pid, --grep, -E, --count, "
         "--follow\n"
         "                      which lines `log` shows; see harrowmossctl help log\n"
         "  -h, --help          this, or the help of the command\n"
         "  --version           the version of harrowmossctl\n"
         "\nExit codes: 0 ok, 1 the daemon reports failure or something is wrong, 2 usage, 3 "
         "cannot connect,\n"
         "4 timed out or busy with another client, 5 bad reply.\n"
         "\nExample: harrowmossctl start mobile,net; harrowmossctl status; harrowmossctl stop\n";
}

std::string command_help(const Command& what) {
  std::string text = std::string("usage: harrowmossctl ") + what.name;
  if (*what.arguments != '\0') text += std::string(" ") + what.arguments;
  text += std::string("\n\n") + what.summary + "\n" + what.details;
  if (what.dangerous) text += "Needs --yes.\n";
  if (what.timeout_s != 0) {
    text += "Waits " + std::to_string(what.timeout_s) + " s for the daemon; see --timeout.\n";
  }
  return text;
}

}  // namespace

int show_help(const Invocation& call, const Command* about, Environment& env) {
  const std::string help = about == nullptr ? general_help() : command_help(*about);
  if (!call.json) {
    fputs(help.c_str(), env.out);
    return kExitOk;
  }
  JsonWriter json;
  json.begin_object().member("command", "help").key("about");
  about == nullptr ? json.null() : json.string(about->name);
  fprintf(env.out, "%s\n", json.member("text", help).end_object().text().c_str());
  return kExitOk;
}

int run_help(const Invocation& call, Environment& env) {
  if (call.arguments.empty()) return show_help(call, nullptr, env);
  const Command* what = find_command(call.arguments[0]);
  if (what == nullptr) {
    return fail(call, env, kExitUsage, "there is no command \"" + call.arguments[0] + "\"");
  }
  return show_help(call, what, env);
}
