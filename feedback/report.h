// The device information report: plain text, appended to one file. The report file is named by a
// directory that ends in '/' and a name. Runs in the forked child of copy_system_propertie(), which
// is killed when a command hangs; a command that writes more than kOutputBytes is killed alone.
#pragma once

#include <string>

#include "storage/shell.h"

// Appends `text`; when the file does not open, the text is lost and one line is logged.
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
