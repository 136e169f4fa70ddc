// Settings that survive a wipe of user data, and the device's identity. Main process.
#pragma once

#include <stdint.h>

// Reads the stored value of `key`, at most 91 bytes and without a terminator, into the zeroed `buf`
// (92 bytes). 0, or -1 after a log line. Not a system property: each key is a file that only root
// can read.
int getPersistProperty(const char* key, char* buf);

// Stores `value` for `key`: in place, flushed to storage, never through a symbolic link. 0, or -1
// after a log line.
int setPersistProperty(const char* key, const char* value);

// The number in the property "plenx_is_root" when that is set; else 0: the system is as delivered,
// 1: modified.
int getBuildState();

// Writes the build's fingerprint, composed of its parts when it is not set and cut at 91
// characters, into the zeroed `buf` (92 bytes) and returns its length.
int getBuildID(char* buf);

// Moves the logs that were written while the device charged powered off into the working area.
void preProcess();

// Used bytes of the file system at `mount`; 0, after a log line, when statfs() fails.
int64_t get_mount_used_size(const char* mount);
