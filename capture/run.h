// The current run of debug logging: where it writes and what it started. One copy per process,
// written by start_debug_log(); forked workers and the size monitor have the values of their fork.
#pragma once

#include <stdint.h>

#include <atomic>
#include <string>

constexpr char kStorePathProp[] = "sys.harrowmossd.log_store_path";  // where the run will lie
constexpr char kVendorRunsDir[] = "/data/vendor/zelkalog/common/";

// The name of the run in kStorePathProp, "" when that is no directory directly in the store.
std::string published_run_name();

extern char s_log_store_path[256];        // /data/misc/zelkalog/<name>, without a slash at the end
extern char s_vendor_log_root_path[256];  // /data/vendor/zelkalog/common/<name>
extern char s_log_dir_name[32];           // <sequence>#MM-DD_hh-mm-ss; "" before the first run
extern bool s_extended_logcat_count;      // the mask asks for 39 rotated files of each logcat

// Takes over the run that the properties name, when it is another than this process knows: the size
// monitor restarts logging in its own process. Nothing before the first run. Main thread.
void adopt_published_run();

extern std::atomic<int32_t> s_self_log_collector_pid;  // its logcat; 0: none. Collector thread too
