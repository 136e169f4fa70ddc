// The output of `du`.
#include <stdio.h>

#include "client/space/quota.h"
#include "client/support/files.h"
#include "client/support/json.h"
#include "client/support/text.h"

namespace {

std::string victim_text(const QuotaReport& report) {
  if (report.next == Eviction::kRestart) {
    return "only the current run is left: everything would be deleted, and logging restarted";
  }
  if (report.next_path.empty()) return "nothing";
  return printable(report.next_path) + ", " + size_text(report.next_bytes);
}

// When the next run is removed.
std::string removal_text(const QuotaReport& report) {
  if (!report.settings.deletion) return "switched off (persist.sys.zelka.log.del)";
  if (!report.settings.logging) return "none while debug logging is off";
  if (report.verdict.extreme_low) return "everything, at once: /data is nearly full";
  return report.verdict.over_quota ? "one run every 5 s until the quota is kept"
                                   : "none: below the quota";
}

}  // namespace

std::string quota_text(const QuotaReport& report, const Environment& env) {
  std::string text;
  const auto line = [&](const std::string& label, const std::string& value) {
    char head[24];
    snprintf(head, sizeof head, "%-12s", (label + ":").c_str());
    text += head + value + "\n";
  };
  const auto tree = [&](const char* label, int64_t bytes, const std::string& path) {
    line(label, size_text(bytes) + " (" + std::to_string(bytes) + " bytes) in " + path);
  };
  const LoggingSettings& settings = report.settings;
  tree("store", report.store_bytes, env.store);
  tree("working", report.working_bytes, env.working);
  line("used", std::to_string(report.verdict.total_mib) + " MiB of " +
                   std::to_string(report.verdict.limit_mib) + " MiB" +
                   (report.verdict.over_quota ? ", over quota" : ""));
  line("quota", std::to_string(settings.quota_setting) + " GiB" +
                    (shrinks_quota(settings.types) ? ", three quarters of it with modem or wifi"
                                                   : ", all of it: neither modem nor wifi"));
  line("removal", removal_text(report));
  line("next to go", victim_text(report));
  for (const VolumeReading& volume : report.volumes) {
    line(volume.path, (has_room(volume) ? "room to log, " : "too little to log, ") +
                          space_text(volume).substr(volume.path.size() + 2));
  }
  return text;
}

std::string quota_json(const QuotaReport& report) {
  const SizeVerdict& verdict = report.verdict;
  JsonWriter json;
  json.begin_object().member("command", "du").member("store_bytes", report.store_bytes);
  json.member("working_bytes", report.working_bytes).member("used_mib", verdict.total_mib);
  json.member("limit_mib", verdict.limit_mib).flag("over_quota", verdict.over_quota);
  json.flag("data_extremely_low", verdict.extreme_low).flag("deletion", report.settings.deletion);
  json.flag("logging", report.settings.logging);
  const bool all = report.next == Eviction::kRestart;
  json.member("next", all ? "everything" : report.next_path.empty() ? "nothing" : "run");
  json.optional("next_path", report.next_path)
      .member("next_bytes", report.next_bytes)
      .key("volumes")
      .begin_array();
  for (const VolumeReading& volume : report.volumes) {
    json.begin_object().member("path", volume.path).member("wanted", volume.wanted);
    json.key("free");
    volume.known ? json.number(volume.available) : json.null();
    json.flag("enough", has_room(volume)).end_object();
  }
  json.end_array().end_object();
  return json.text() + "\n";
}
