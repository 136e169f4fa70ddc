#include "client/quota.h"

#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include "client/files.h"
#include "model/tree_size.h"
#include "protocol/data_room.h"

namespace {

constexpr const char* kSequence = "persist.sys.zklog.dir_sequence";
constexpr int64_t kMib = 1 << 20;
constexpr const char* kData = "/data";

struct oldest {
  int number = -1;  // -1: none that may go
  std::string name;
  int count = 0;  // number 0 counts, but never goes
};

oldest oldest_of(const numbered_runs& runs) {
  oldest found;
  for (const std::string& name : runs.names) {
    const size_t digits = strspn(name.c_str(), "0123456789");
    const bool one_line = name.find_first_of("\n\r") == std::string::npos;
    if (digits == 0 || name[digits] != '#' || !one_line) continue;
    ++found.count;
    const int number = atoi(name.c_str());
    if (number < 1 || (found.number != -1 && number >= found.number)) continue;
    found.number = number;
    found.name = name;
  }
  return found;
}

numbered_runs directories_of(const std::string& root) {
  numbered_runs runs = {root, {}};
  for (const std::string& name : list_directory(root)) {
    if (is_directory(root + "/" + name)) runs.names.push_back(name);
  }
  return runs;
}

}  // namespace

int64_t quota_bytes(const std::string& root) {
  int64_t bytes = 0;
  tree_size(root, nullptr, &bytes);
  return bytes;
}

int64_t preallocated_bytes(const std::string& working) {
  int64_t total = 0;
  for (const std::string& run : list_directory(working)) {
    const std::string captured = working + "/" + run + "/mobile/";
    for (const std::string& name : list_directory(captured)) {
      struct stat info;
      if (lstat((captured + name).c_str(), &info) == 0 && S_ISREG(info.st_mode)) {
        total += preallocated(info);
      }
    }
  }
  return total;
}

quota_verdict judge_quota(int64_t used_bytes, int quota_gib, int32_t types, int64_t data_available,
                          int64_t data_preallocated) {
  quota_verdict verdict;
  verdict.used_mib = used_bytes / kMib;
  verdict.limit_mib = int64_t{quota_gib} * (shrinks_quota(types) ? 768 : 1024);
  verdict.over = verdict.limit_mib < verdict.used_mib;
  verdict.extreme = data_extremely_low(data_available, data_preallocated);
  return verdict;
}

eviction_plan plan_eviction(const numbered_runs& store, const numbered_runs& working,
                            int64_t current, bool logging) {
  const oldest finished = oldest_of(store);
  const bool last_one = !logging && finished.count == 1 && finished.number == current;
  if (finished.number != -1 && !last_one) {
    return {next_victim::kRun, store.root + "/" + finished.name};
  }
  if (!logging) return {};
  const oldest captured = oldest_of(working);
  if (captured.number == -1) return {};
  if (captured.number == current) return {next_victim::kEverything, ""};
  return {next_victim::kRun, working.root + "/" + captured.name};
}

quota_report read_quota(const environment& env) {
  quota_report report;
  report.settings = read_settings(env);
  report.store_bytes = quota_bytes(env.store);
  report.working_bytes = quota_bytes(env.working);
  report.volumes = read_volumes(env);
  int64_t data = 0;
  for (const volume_reading& volume : report.volumes) {
    if (volume.path == kData) data = volume.available;
  }
  report.verdict =
      judge_quota(report.store_bytes + report.working_bytes, report.settings.quota_setting,
                  report.settings.types, data, preallocated_bytes(env.working));
  report.plan = plan_eviction(directories_of(env.store), directories_of(env.working),
                              atoi(env.property(kSequence, "0").c_str()), report.settings.logging);
  if (report.plan.what == next_victim::kRun) report.victim_bytes = quota_bytes(report.plan.path);
  return report;
}

int run_du(const invocation& call, environment& env) {
  const quota_report report = read_quota(env);
  fputs((call.json ? quota_json(report) : quota_text(report, env)).c_str(), env.out);
  return EXIT_OK;
}
