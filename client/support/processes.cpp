#include "client/support/processes.h"

#include <limits.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <string_view>

#include "client/support/files.h"
#include "model/masks.h"
#include "model/paths.h"
#include "model/process_names.h"

namespace {

constexpr size_t kCommandLimit = 4096;  // longest command line shown

enum class Where { kComm, kProgram, kCommand };

struct WorkerRule {
  Where field;  // kProgram: argv[0] begins so; kCommand: the joined argv holds it
  const char* text;
  const char* role;
};

// Names and commands that the daemon gives its workers; logger types' own names are found through
// their table.
constexpr WorkerRule kWorkerRules[] = {
    {Where::kComm, kSizeMonitorName, kSizeMonitorRole},
    {Where::kComm, "harrowmossd:debug-fg", "power"},
    {Where::kComm, "harrowmossd:debug-general", "feedback"},
    {Where::kProgram, kCollectorName, "self log"},
    {Where::kProgram, kFingerprintShell, "fingerprint"},
    {Where::kProgram, kMobileShell, "mobile"},
    {Where::kProgram, kWorkerPrefix, "mobile"},
    {Where::kProgram, kGeneralPrefix, "feedback"},
    {Where::kCommand, "/ipc_logging/qrtr_", "mobile"},
    {Where::kCommand, "/.logger/kernel_pmic.txt", "kernel log"},
    // Scripts, and what they leave running: the parent of an orphan no longer shows its type.
    {Where::kCommand, kNetScript, "net"},
    {Where::kCommand, "/system/etc/power_logs_", "power"},
    {Where::kCommand, kFuelGaugeScript, "power"},
    {Where::kCommand, "/system/etc/watch_fd.sh", "mobile"},
};

std::string_view base_name(std::string_view path) {
  return path.substr(path.find_last_of('/') + 1);  // npos + 1 is 0
}

std::vector<std::string> split_arguments(const std::string& bytes) {
  std::vector<std::string> argv;
  for (size_t start = 0; start < bytes.size();) {
    const size_t end = bytes.find('\0', start);
    argv.push_back(bytes.substr(start, end - start));
    if (end == std::string::npos) break;
    start = end + 1;
  }
  return argv;
}

bool matches(const WorkerRule& rule, const Process& who, const std::string& command) {
  switch (rule.field) {
    case Where::kComm:
      return who.comm == kernel_name(rule.text);
    case Where::kProgram:
      return !who.argv.empty() && who.argv[0].compare(0, strlen(rule.text), rule.text) == 0;
    case Where::kCommand:
      return command.find(rule.text) != std::string::npos;
  }
  return false;
}

std::string role_of(const Process& who, const std::string& inherited) {
  for (const NamedBit& type : kLoggerTypeNames) {
    if (who.comm == kernel_name(std::string(kWorkerPrefix) + type.name)) return type.name;
  }
  std::string command;
  for (const std::string& argument : who.argv) command += argument + ' ';
  for (const WorkerRule& rule : kWorkerRules) {
    if (matches(rule, who, command)) return rule.role;
  }
  return inherited;
}

void add_below(const std::vector<Process>& all, pid_t parent, const std::string& inherited,
               std::vector<Worker>* found) {
  for (const Process& who : all) {
    if (who.parent != parent || who.pid == parent) continue;
    found->push_back({who, role_of(who, inherited)});
    add_below(all, who.pid, std::string(found->back().role), found);
  }
}

}  // namespace

bool parse_stat(const std::string& text, Process* out) {
  const size_t open = text.find('(');
  const size_t close = text.rfind(')');
  if (open == std::string::npos || close == std::string::npos || close < open) return false;
  out->pid = atoi(text.c_str());
  out->comm = text.substr(open + 1, close - open - 1);
  // Behind the name, blank-separated: 3 state, 4 parent, ..., 22 start time.
  const char* field = text.c_str() + close + 1;
  for (int number = 3; number <= 22; number++) {
    if (*field != ' ') return false;
    field++;
    if (number == 4) out->parent = atoi(field);
    if (number == 22) out->started = strtoull(field, nullptr, 10);
    field += strcspn(field, " \n");
  }
  return out->pid > 0;
}

std::vector<Process> read_processes(const std::string& proc) {
  std::vector<Process> all;
  for (const std::string& name : list_directory(proc)) {
    if (name.find_first_not_of("0123456789") != std::string::npos) continue;
    const std::string directory = proc + "/" + name;
    Process who;
    if (!parse_stat(read_start(directory + "/stat", kCommandLimit), &who)) continue;
    who.argv = split_arguments(read_start(directory + "/cmdline", kCommandLimit));
    char target[PATH_MAX];
    const ssize_t length = readlink((directory + "/exe").c_str(), target, sizeof target);
    if (length > 0) who.exe.assign(target, static_cast<size_t>(length));
    all.push_back(who);
  }
  return all;
}

const Process* find_daemon(const std::vector<Process>& all) {
  const Process* found = nullptr;
  for (const Process& who : all) {
    const std::string program = who.argv.empty() ? "" : who.argv[0];
    // A worker that outlived an earlier daemon can be a child of init too, but has another name.
    if (who.parent != 1 || who.comm != kDaemonName) continue;
    if (base_name(who.exe.empty() ? program : who.exe) != kDaemonName) continue;
    if (found == nullptr || who.started < found->started) found = &who;
  }
  return found;
}

std::vector<Worker> find_workers(const std::vector<Process>& all, pid_t daemon) {
  std::vector<Worker> found;
  add_below(all, daemon, "", &found);
  return found;
}
