#include "client/status/status.h"

#include <stdio.h>

#include "client/support/files.h"
#include "client/support/json.h"
#include "client/support/text.h"
#include "client/support/volume.h"
#include "protocol/names.h"

namespace {

std::string joined(const std::vector<std::string>& argv) {
  std::string text;
  for (const std::string& argument : argv) text += (text.empty() ? "" : " ") + argument;
  return text;
}

}  // namespace

StatusReport read_status(const Environment& env) {
  StatusReport report;
  report.settings = read_settings(env);
  if (!report.settings.run_name.empty()) {
    report.working_dir = env.working + "/" + report.settings.run_name;
    report.working_bytes = quota_bytes(report.working_dir);
  }
  report.used_bytes = quota_bytes(env.working) + quota_bytes(env.store);

  const std::vector<Process> all = read_processes(env.proc);
  const Process* daemon = find_daemon(all);
  if (daemon == nullptr) return report;
  report.daemon = daemon->pid;
  for (const Worker& found : find_workers(all, daemon->pid)) {
    const bool monitor = found.role == kSizeMonitorRole && found.who.parent == daemon->pid;
    if (monitor) report.size_monitor = found.who.pid;
    if (!monitor) report.workers.push_back(found);
  }
  return report;
}

std::string status_text(const StatusReport& report) {
  const LoggingSettings& settings = report.settings;
  std::string text;
  const auto line = [&](const char* label, const std::string& value) {
    char head[24];
    snprintf(head, sizeof head, "%-15s", label);
    text += head + value + "\n";
  };
  const auto pid = [](pid_t value) {
    return value == 0 ? std::string("not running") : "pid " + std::to_string(value);
  };
  line("debug logging:", settings.logging ? "on" : "off");
  char number[32];
  snprintf(number, sizeof number, " (0x%x)", static_cast<unsigned>(settings.types));
  line("types:", mask_text(kLoggerTypeWords, settings.types) + number);
  line("latest run:", settings.store_path.empty() ? "none yet" : printable(settings.store_path));
  if (!report.working_dir.empty()) {
    line("captured in:", printable(report.working_dir) + ", " + size_text(report.working_bytes));
  }
  snprintf(number, sizeof number, " of %.4g GiB", static_cast<double>(settings.quota_mib) / 1024);
  line("all runs:", size_text(report.used_bytes) + number +
                        (settings.deletion ? "" : ", but removing old runs is switched off"));
  line("daemon:", pid(report.daemon));
  line("size monitor:", pid(report.size_monitor));
  line("workers:", report.workers.empty() ? "none" : std::to_string(report.workers.size()));
  if (report.workers.empty()) return text;
  text += "    PID   PPID  TYPE          NAME             COMMAND\n";
  for (const Worker& entry : report.workers) {
    char head[96];
    snprintf(head, sizeof head, "%7d%7d  %-13s %-16s ", entry.who.pid, entry.who.parent,
             entry.role.empty() ? "?" : entry.role.c_str(), printable(entry.who.comm).c_str());
    text += head + printable(joined(entry.who.argv)) + "\n";
  }
  return text;
}

std::string status_json(const StatusReport& report) {
  const LoggingSettings& settings = report.settings;
  JsonWriter json;
  const auto optional_pid = [&](const char* key, pid_t value) {
    value == 0 ? json.key(key).null() : json.member(key, value);
  };
  json.begin_object().member("command", "status").flag("logging", settings.logging);
  json.member("mask", settings.types).member("types", mask_text(kLoggerTypeWords, settings.types));
  json.optional("store_path", settings.store_path).optional("working_dir", report.working_dir);
  json.member("working_bytes", report.working_bytes).member("used_bytes", report.used_bytes);
  json.member("quota_bytes", settings.quota_mib << 20);
  json.flag("deletion", settings.deletion);
  optional_pid("daemon_pid", report.daemon);
  optional_pid("size_monitor_pid", report.size_monitor);
  json.key("workers").begin_array();
  for (const Worker& entry : report.workers) {
    json.begin_object().member("pid", entry.who.pid).member("ppid", entry.who.parent);
    json.optional("type", entry.role).member("comm", entry.who.comm).key("cmdline").begin_array();
    for (const std::string& argument : entry.who.argv) json.string(argument);
    json.end_array().end_object();
  }
  json.end_array().end_object();
  return json.text() + "\n";
}

int run_status(const Invocation& call, Environment& env) {
  const StatusReport report = read_status(env);
  fputs((call.json ? status_json(report) : status_text(report)).c_str(), env.out);
  return kExitOk;
}
