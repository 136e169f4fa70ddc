#include "capture/run.h"

#include "base/text.h"
#include "selflog/props.h"
#include "storage/utils.h"

char s_log_store_path[256];
char s_vendor_log_root_path[256];
char s_log_dir_name[32];
bool s_extended_logcat_count = false;
std::atomic<int32_t> s_self_log_collector_pid{0};

std::string published_run_name() {
  const std::string path = get_string_prop(kStorePathProp, "");
  if (!starts_with(path.c_str(), kStoreDir)) return "";
  const std::string name = path.substr(sizeof(kStoreDir) - 1);
  const bool plain = name.find('/') == std::string::npos && name != "." && name != "..";
  return plain && name.size() < sizeof(s_log_dir_name) ? name : "";
}

void adopt_published_run() {
  const std::string name = published_run_name();
  if (s_log_dir_name[0] == '\0' || name.empty() || name == s_log_dir_name) return;
  copy_or_abort(s_log_dir_name, name.c_str());
  format_cut(s_log_store_path, "%s%s", kWorkingDir, s_log_dir_name);
  format_cut(s_vendor_log_root_path, "%s%s", kVendorRunsDir, s_log_dir_name);
}
