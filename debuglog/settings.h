// Values that survive a wipe of the user's data, and what the daemon says of the device's identity.
// Main process, request thread or start-up.
#pragma once

#include <stdint.h>

// Reads the stored value of `key`, at most 91 bytes and without a terminator, into the zeroed `buf`
// (92 bytes). 0, or -1 after a log line. No system property: each key is a file of root's.
int getPersistProperty(const char* key, char* buf);

// Stores `value` for `key`: in place, flushed to storage, never through a symbolic link. 0, or -1
// after a log line.
int setPersistProperty(const char* key, const char* value);

// 0: the system is as delivered, 1: modified; any other number is what the property "plenx_is_root"
// says.
int getBuildState();

// Writes the build's fingerprint, or what its parts make, cut at 91 characters, into the zeroed
// `buf` (92 bytes) and returns its length.
int getBuildID(char* buf);

// Moves the logs that were written while the device charged powered off into the working area.
void preProcess();

// Used bytes of the file system at `mount`, 0 after a log line when it cannot be asked.
int64_t get_mount_used_size(const char* mount);
