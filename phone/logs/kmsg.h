// The kernel's log, as Android's log daemon hands it out.
#pragma once

#include <stdint.h>

#include <string_view>

#include "phone/logs/entry.h"

// Turns one record of /dev/kmsg ("PRIORITY,SEQUENCE,MICROSECONDS,FLAGS;TEXT\n...") into an entry.
// The text before the first ": " becomes the tag. `offset_ns` is what turns the kernel's clock into
// real time. False for a broken record.
bool parse_kmsg(std::string_view record, int64_t offset_ns, LogEntry* entry);

// Appends what the kernel has logged and logs to the buffer "kernel", for good: init's thread for
// it. Reading takes CAP_SYSLOG, which readers of the buffer need not have. Returns at once where
// /dev/kmsg cannot be read.
void copy_kmsg();
