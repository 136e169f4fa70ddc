// Commands, the command line, and help.
#pragma once

#include <stddef.h>

#include <chrono>
#include <string>
#include <vector>

#include "client/support/environment.h"
#include "protocol/protocol.h"

struct Invocation;

// Options that only some commands take.
enum CommandOption : unsigned {
  kTakesNone = 0,
  kTakesDryRun = 1,
  kTakesSelect = 2,
  kTakesEstimate = 4,
  kTakesOutput = 8,
  kTakesLines = 16,  // options that choose lines
  kTakesView = 32,
};

struct Command {
  const char* name;
  const char* arguments;  // as the usage line shows them
  size_t min_arguments;
  size_t max_arguments;
  int timeout_s;               // for the daemon's answer; 0: the daemon is not asked
  bool dangerous;              // destroys or may harm something: needs --yes
  unsigned options;            // CommandOption
  const RequestName* request;  // what is sent; null when nothing, or nothing fixed
  int (*run)(const Invocation& call, Environment& env);  // an ExitCode
  const char* summary;                                   // one line
  const char* details;  // the rest of its help; "" when there is none
};

// A parsed command line.
struct Invocation {
  const Command* what = nullptr;  // null only when `help` is set
  std::vector<std::string> arguments;
  std::string select;                                               // --select, "" when not given
  std::string output;                                               // -o, "" when not given
  std::string since, until, around, buffer, tag, level, pid, grep;  // of `log`, as typed
  bool extended = false;                                            // -E
  bool count = false;
  bool follow = false;
  bool view = false;  // put the page into the archive
  bool estimate = false;
  bool json = false;
  bool dry_run = false;
  bool yes = false;
  bool progress = false;
  bool help = false;     // show help (of `what`, when there is one) and do nothing
  bool version = false;  // show the client's version and do nothing
  std::chrono::milliseconds timeout{0};
};

// Parses the words after the program's name. False and one line in `error` when one is unknown or
// the number of arguments is wrong.
bool parse_command_line(const std::vector<std::string>& words, Invocation* call,
                        std::string* error);

constexpr size_t kCommandCount = 27;
extern const Command kCommands[kCommandCount];  // in the order of the help

// The row of that name, or null.
const Command* find_command(const std::string& name);

// Prints the help of `about`, the general one when it is null; with --json as an object.
int show_help(const Invocation& call, const Command* about, Environment& env);

// `help`.
int run_help(const Invocation& call, Environment& env);

// The whole program without main(): reads `words`, runs the command, returns the exit code.
int run_client(const std::vector<std::string>& words, Environment& env);

// Reports a failure: one line on env.err and, with --json, an object on env.out. Returns `code`.
int fail(const Invocation& call, Environment& env, ExitCode code, const std::string& text);
