// The self log, .logger/harrowmossd.txt, and the collector that copies the daemon's Android log
// lines into a file beside it.
#pragma once

#include <stdarg.h>
#include <stdint.h>

#include <atomic>

#include "model/paths.h"

namespace loggersystem {

// Appends one line: local time, "|| harrowmossd [pid, tid] ", the message, and a newline unless the
// message holds one. Lines are cut at 1023 bytes. Writes nothing unless "persist.sys.logger.enable"
// begins with "on". The file rotates once a process has written 10 MiB to it: .1 to .5 are kept.
// Returns 0 when a line was written, else -1. Any process, any thread.
int logger(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
int vlogger(const char* fmt, va_list args);

// Makes every missing directory on `path` (shorter than 255 bytes; a longer one aborts) with mode
// 0777 and owner 1015:1015. Returns 0, or -1 after a line in the Android log.
int logger_mkdir(const char* path);

// Starts the collector thread when the self log is enabled and no collector runs. `pid` must
// outlive the thread; it holds the pid of the running logcat, 0 while there is none. Returns 0, or
// -1 when nothing was started. Any process that starts debug logging.
int startSelfLogCollector(std::atomic<int32_t>* pid);

// The collector thread's body; `pid` as above. A logcat that ends while debug logging is on is
// replaced, at once unless it ends again and again. Ends when its logcat has ended and debug
// logging is off.
void* collectSelfLog(void* pid);

// Stops the collector's logcat `pid` for good and adds to its file what it had not written yet. It
// must be killed afterwards: it would write that again. Nothing for a `pid` below 1 and for one
// that is gone; failures are logged. Up to kCompletionMs. Main process.
void completeSelfLog(int32_t pid);

}  // namespace loggersystem
