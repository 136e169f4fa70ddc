// The daemon's settings, read the way it reads them.
#pragma once

#include <stdint.h>

#include <string>

#include "client/support/environment.h"

struct LoggingSettings {
  bool logging = false;    // any value that begins with "on" counts
  int32_t types = 0;       // logger type mask; text that is no number counts as 0
  std::string store_path;  // where the latest run ends, "" before the first
  std::string run_name;    // last component of store_path
  int quota_setting = 0;   // GiB, as it is set; 20 when it is no valid quota
  int64_t quota_mib = 0;   // above which the oldest runs are removed
  bool deletion = false;   // the quota is enforced
};

LoggingSettings read_settings(const Environment& env);
