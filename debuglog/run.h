// The current run of debug logging: its name and paths. Each process has its own copy. The main
// process and the size monitor both start runs, and share a page that names the current one.
#pragma once

#include <stdint.h>

#include <atomic>
#include <string>

constexpr char kVendorRunsDir[] = "/data/vendor/zelkalog/common/";

extern char s_log_store_path[256];        // /data/misc/zelkalog/<name>, without a slash at the end
extern char s_vendor_log_root_path[256];  // /data/vendor/zelkalog/common/<name>
extern char s_log_dir_name[32];           // [<sequence>#]MM-DD_hh-mm-ss; "" before the first run
extern bool s_extended_logcat_count;      // the mask asks for 39 rotated files of each logcat

extern std::atomic<int32_t> s_self_log_collector_pid;  // its logcat, 0: none; any thread

// Maps the shared page. When that fails, one error line: the main process will not know of runs
// that the size monitor starts. Main process, before its first fork.
void share_current_run();

// Makes `name` (shorter than 32 bytes; longer aborts) the current run, here and on the shared page.
// Called by the process that starts the run.
void enter_run(const char* name);

// The name of the run that was started last, by either process; "" before the first. A process that
// is killed in enter_run() leaves the previous name. Any process, any thread.
std::string current_run_name();

// Makes a run that another process has started the current one here too. True when there was one.
// Main thread of the main process or of the size monitor.
bool follow_current_run();

// True when `path` is the name of a run directly in the store; it need not exist.
bool is_stored_run(const std::string& path);
