// Where the secure-world traces of the type "fingerprint" are, for the thread that rotates them.
#pragma once

#include <string>

// Their directory in the current run, also when the size monitor has started that run; "" before
// the first start of the type in this process. Any thread.
std::string fingerprint_log_dir();

// Records that the type was started with the directory `name`, a constant. Main thread.
void set_fingerprint_log_dir(const char* name);
