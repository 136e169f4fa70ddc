// The directory of the secure-world traces: set by the fingerprint type's start, read by the
// rotation thread.
#pragma once

// The directory, "" before the first start in this process. Valid for ever; any thread.
const char* fingerprint_log_dir();

// Makes `dir` (255 bytes at most; longer aborts) known. Main thread.
void set_fingerprint_log_dir(const char* dir);
