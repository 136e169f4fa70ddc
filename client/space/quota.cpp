#include "client/space/quota.h"

#include <limits.h>
#include <sys/stat.h>

#include "base/text.h"
#include "client/support/files.h"
#include "model/data_room.h"
#include "model/paths.h"
#include "model/properties.h"

namespace {

OldestRun oldest_of(const std::string& root) {
  OldestRun oldest;
  for (const std::string& name : list_directory(root)) {
    if (is_directory(root + "/" + name)) oldest.add(name.c_str());
  }
  return oldest;
}

}  // namespace

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

QuotaReport read_quota(const Environment& env) {
  QuotaReport report;
  report.settings = read_settings(env);
  report.store_bytes = quota_bytes(env.store);
  report.working_bytes = quota_bytes(env.working);
  report.volumes = read_volumes(env);
  VolumeSpace data;  // 0 available when it is not known
  env.space(env.root + kData, &data);
  report.verdict = judge_sizes({report.store_bytes, report.working_bytes,
                                report.settings.quota_setting, shrinks_quota(report.settings.types),
                                data.available, preallocated_bytes(env.working)});
  const OldestRun store = oldest_of(env.store);
  const OldestRun working = oldest_of(env.working);
  const int current = read_count(env.property(kSequenceProp, "0"), INT_MAX - 1, 0);
  report.next = plan_eviction(store, working, current, report.settings.logging, -1).what;
  if (report.next == Eviction::kStoreRun) report.next_path = env.store + "/" + store.name;
  if (report.next == Eviction::kWorkingRun) report.next_path = env.working + "/" + working.name;
  if (!report.next_path.empty()) report.next_bytes = quota_bytes(report.next_path);
  return report;
}

int run_du(const Invocation& call, Environment& env) {
  const QuotaReport report = read_quota(env);
  fputs((call.json ? quota_json(report) : quota_text(report, env)).c_str(), env.out);
  return kExitOk;
}
