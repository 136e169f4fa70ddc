#include "capture/run.h"

char s_log_store_path[256];
char s_vendor_log_root_path[256];
char s_log_dir_name[32];
bool s_extended_logcat_count = false;
std::atomic<int32_t> s_self_log_collector_pid{0};
