// Copies the kernel log into the buffer "kernel".
#pragma once

#include <stdint.h>

#include <string_view>

#include "phone/logs/entry.h"

// Parses one record of /dev/kmsg ("PRIORITY,SEQUENCE,MICROSECONDS,FLAGS;TEXT\n..."). The text
// before the first ": " becomes the tag. `offset_ns` is added to the kernel's time. False for a
// broken record.
bool parse_kmsg(std::string_view record, int64_t offset_ns, LogEntry* entry);

// Appends the kernel's past and future records to the buffer "kernel"; runs in a thread of init,
// because reading needs CAP_SYSLOG. Returns only where /dev/kmsg cannot be read.
void copy_kmsg();
