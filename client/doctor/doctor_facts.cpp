#include <errno.h>
#include <stdio.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>

#include "client/connection/session.h"
#include "client/doctor/doctor.h"
#include "client/runs/runs.h"
#include "client/support/files.h"
#include "client/support/processes.h"
#include "model/paths.h"
#include "model/properties.h"

namespace {

constexpr size_t kSocketsLimit = 4 << 20;  // some 100 bytes for each socket of the phone

// clang-format off

// What the platform must have for a logger type; 0 is for every type.
constexpr struct {
  int32_t types;
  const char* needed_for;
  const char* path;
} kNeededFiles[] = {
    {0,           "everything", kShell},
    {0,           "everything", kCpTool},
    {0,           "everything", kMvTool},
    {0,           "everything", kRmTool},
    {0,           "everything", kChmodTool},
    {kTypeMobile, "mobile",     kLogcat},
    {kTypeNet,    "net",        kNetScript},
    {kTypePower,  "power",      kFuelGaugeScript},
    {kTypePower,  "power",      kPowerStartScript},
    {kTypePower,  "power",      kPowerStopScript},
};

// clang-format on

// Scripts are read by a shell, tools are executed.
bool is_usable(const std::string& path) {
  const bool script = path.size() > 3 && path.compare(path.size() - 3, 3, ".sh") == 0;
  return access(path.c_str(), script ? R_OK : X_OK) == 0;
}

bool is_logger_type(const std::string& role) {
  return std::any_of(std::begin(kLoggerTypeNames), std::end(kLoggerTypeNames),
                     [&](const NamedBit& type) { return role == type.name; });
}

// The directory of the current run when it is missing, else "".
std::string lost_run(const Environment& env, const LoggingSettings& settings) {
  if (!settings.logging || settings.run_name.empty()) return "";
  const std::string path = env.working + "/" + settings.run_name;
  return access(path.c_str(), F_OK) != 0 && errno == ENOENT ? path : "";
}

// Our own connection must be closed when this looks. A line of /proc/net/unix reads "number:
// RefCount Protocol Flags Type St Inode Path", the figures in hexadecimal. The daemon's end of a
// connection has the path of its socket; St is 3 once it is accepted. Two references are its own:
// one more is that of a client which has not closed.
OtherClient look_for_clients(const Environment& env) {
  const std::string table = read_start(env.proc + "/net/unix", kSocketsLimit);
  const std::string path = std::string("/dev/socket/") + kControlSocketName;
  OtherClient found = OtherClient::kUnknown;
  for (size_t start = 0, end; (end = table.find('\n', start)) != std::string::npos;
       start = end + 1) {
    const std::string line = table.substr(start, end - start);
    unsigned references, state;
    int name = 0;
    if (sscanf(line.c_str(), "%*s %x %*s %*s %*s %x %*s %n", &references, &state, &name) != 2 ||
        line.substr(static_cast<size_t>(name)) != path) {
      continue;
    }
    if (state == 3 && references > 2) return OtherClient::kConnected;
    found = OtherClient::kNone;
  }
  return found;
}

void look_at_processes(const Environment& env, HealthFacts* facts) {
  const std::vector<Process> all = read_processes(env.proc);
  const Process* daemon = find_daemon(all);
  if (daemon == nullptr) return;
  facts->sees_daemon = true;
  bool writers = false;
  for (const Worker& found : find_workers(all, daemon->pid)) {
    facts->sees_monitor |= found.role == kSizeMonitorRole && found.who.parent == daemon->pid;
    facts->sees_logcats |= found.role == "mobile";
    writers |= is_logger_type(found.role);
  }
  if (writers) facts->lost_run = lost_run(env, facts->settings);
}

}  // namespace

HealthFacts read_health(const Environment& env, SteadyTime deadline) {
  HealthFacts facts;
  const SteadyTime begin = std::chrono::steady_clock::now();
  {
    Connection daemon;
    facts.session = open_session(env, deadline, &daemon, nullptr);
  }
  facts.waited = std::chrono::duration_cast<std::chrono::milliseconds>(
      std::chrono::steady_clock::now() - begin);
  facts.other = look_for_clients(env);
  facts.settings = read_settings(env);
  facts.enable = env.property(kEnableProp, "off");
  facts.type_text = env.property(kTypeProp, "");
  facts.mounted = env.property(kMountedProp, "0");
  facts.self_log = env.property(kSelfLogProp, "off").compare(0, 2, "on") == 0;
  facts.volumes = read_volumes(env);
  for (const auto& row : kNeededFiles) {
    const bool wanted = row.types == 0 || (row.types & facts.settings.types) != 0;
    if (wanted && !is_usable(env.root + row.path)) {
      facts.missing.push_back({row.path, row.needed_for});
    }
  }
  for (const RunReport& run : read_runs(env)) {
    if (run.state == RunState::kLeftBehind) facts.left_behind.push_back(run.working);
  }
  look_at_processes(env, &facts);
  return facts;
}
