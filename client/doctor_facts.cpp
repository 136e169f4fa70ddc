#include <unistd.h>

#include <algorithm>

#include "client/doctor.h"
#include "client/processes.h"
#include "client/runs.h"
#include "client/session.h"

namespace {

constexpr const char* kEnable = "persist.sys.zklog.enable";
constexpr const char* kTypes = "persist.sys.zklog.type";
constexpr const char* kMounted = "vold.mounted";
constexpr const char* kSelfLogSwitch = "persist.sys.logger.enable";

// clang-format off

// What the platform must have for a logger type; 0 is for every type.
constexpr struct {
  int32_t types;
  const char* needed_for;
  const char* path;
} kNeededFiles[] = {
    {0,   "everything", "/system/bin/sh"},
    {0,   "everything", "/system/bin/cp"},
    {0,   "everything", "/system/bin/mv"},
    {0,   "everything", "/system/bin/rm"},
    {0,   "everything", "/system/bin/chmod"},
    {0x1, "mobile",     "/system/bin/logcat"},
    {0x4, "net",        "/system/etc/get_net_log.sh"},
    {0x8, "power",      "/system/etc/fg_logs_start.sh"},
    {0x8, "power",      "/system/etc/power_logs_start.sh"},
    {0x8, "power",      "/system/etc/power_logs_stop.sh"},
};

// clang-format on

// Scripts are read by a shell, tools are executed.
bool is_usable(const std::string& path) {
  const bool script = path.size() > 3 && path.compare(path.size() - 3, 3, ".sh") == 0;
  return access(path.c_str(), script ? R_OK : X_OK) == 0;
}

void look_at_processes(const environment& env, health_facts* facts) {
  const std::vector<process> all = read_processes(env.proc);
  const process* daemon = find_daemon(all);
  if (daemon == nullptr) return;
  facts->sees_daemon = true;
  for (const worker& found : find_workers(all, daemon->pid)) {
    facts->sees_monitor |= found.role == kSizeMonitorRole && found.who.parent == daemon->pid;
    facts->sees_logcats |= found.role == "mobile";
  }
}

}  // namespace

health_facts read_health(const environment& env, steady_time deadline) {
  health_facts facts;
  connection daemon;
  facts.session = open_session(env, deadline, &daemon, nullptr);
  facts.settings = read_settings(env);
  facts.enable = env.property(kEnable, "off");
  facts.type_text = env.property(kTypes, "");
  facts.mounted = env.property(kMounted, "0");
  facts.self_log = env.property(kSelfLogSwitch, "off").compare(0, 2, "on") == 0;
  facts.volumes = read_volumes(env);
  for (const auto& row : kNeededFiles) {
    const bool wanted = row.types == 0 || (row.types & facts.settings.types) != 0;
    if (wanted && !is_usable(env.root + row.path)) {
      facts.missing.push_back({row.path, row.needed_for});
    }
  }
  for (const run_report& run : read_runs(env)) {
    if (run.state == run_state::kLeftBehind) facts.left_behind.push_back(run.working);
  }
  look_at_processes(env, &facts);
  return facts;
}
