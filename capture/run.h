// The current run of debug logging: where it writes and what it started. One copy per process,
// written by start_debug_log(); forked workers and the size monitor have the values of their fork.
#pragma once

#include <stdint.h>

#include <atomic>

extern char s_log_store_path[256];        // /data/misc/zelkalog/<name>, without a slash at the end
extern char s_vendor_log_root_path[256];  // /data/vendor/zelkalog/common/<name>
extern char s_log_dir_name[32];           // <sequence>#MM-DD_hh-mm-ss; "" before the first run
extern bool s_extended_logcat_count;      // the mask asks for 39 rotated files of each logcat
extern std::atomic<int32_t> s_self_log_collector_pid;  // its logcat; 0: none. Collector thread too
