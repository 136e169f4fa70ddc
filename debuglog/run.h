// The current run of debug logging: where it writes and what it started. Every process has its own
// copy, from its fork on; which run is the current one is told by a page that the main process and
// the size monitor share, because both start runs.
#pragma once

#include <stdint.h>

#include <atomic>
#include <string>

// Where the run will lie when it is finished. Written for others and read where the wifi logs are
// sorted, nowhere else: vendor services may set it.
constexpr char kStorePathProp[] = "sys.harrowmossd.log_store_path";
constexpr char kVendorRunsDir[] = "/data/vendor/zelkalog/common/";

extern char s_log_store_path[256];        // /data/misc/zelkalog/<name>, without a slash at the end
extern char s_vendor_log_root_path[256];  // /data/vendor/zelkalog/common/<name>
extern char s_log_dir_name[32];           // [<sequence>#]MM-DD_hh-mm-ss; "" before the first run
extern bool s_extended_logcat_count;      // the mask asks for 39 rotated files of each logcat

extern std::atomic<int32_t> s_self_log_collector_pid;  // its logcat; 0: none. Collector thread too

// Maps the shared page. Without memory for it the main process does not learn of runs that the size
// monitor starts; one error line. Main process, before its first fork.
void share_current_run();

// Makes `name` (shorter than 32 bytes; longer aborts) the current run, here and for the other
// process. The process that starts it.
void enter_run(const char* name);

// The name of the run that was started last, in whatever process; "" before the first. A process
// that is killed while it enters a run leaves the name before. Any process, any thread.
std::string current_run_name();

// Takes over the current run when another process has started it. True when it was not known here.
// Main thread of the main process or of the size monitor.
bool follow_current_run();

// True when `path` is a directory directly in the store with the name of a run.
bool is_stored_run(const std::string& path);
