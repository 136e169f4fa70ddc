// The device information report: plain text, appended piece by piece to one file. The report file
// is named by a directory that ends in '/' and a name. All of it runs in the forked child of
// copy_system_propertie(), which is killed when a command hangs; one that writes more than
// kOutputBytes is killed by itself.
#pragma once

#include <string>

#include "storage/shell.h"

// Appends `text`; a file that does not open costs this piece and a log line.
void append_info(const char* dir, const char* name, const char* text);

// Appends the main block: file systems, identity, battery, radio, memory.
void write_info(const char* dir, const char* name);

// Appends whether the device is rooted.
void write_build_state(const char* dir, const char* name);

// Appends what `command` prints between two frame lines. The file must exist.
void write_cmd_output(const char* dir, const char* name, FixedText command);

// The row of one file system, and one labelled item; "" for a command that cannot be started.
std::string write_mount_info_detail(const char* mount);
std::string write_device_base_info(const char* label, FixedText command,
                                   int bound_ms = kToolBoundMs);

// True when a directory of PATH (255 bytes at most; longer aborts) holds "su", or a property says
// so.
bool isRooted();
