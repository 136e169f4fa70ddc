// The directory of the secure-world traces: set by the fingerprint type's start, read by the
// rotation thread.
#pragma once

#include <string>

// The directory in the current run, also when the size monitor has started that one; "" before the
// first start of the type in this process. Any thread.
std::string fingerprint_log_dir();

// Tells that the type was started, with its directory's name `name`, which must live for ever. Main
// thread.
void set_fingerprint_log_dir(const char* name);
