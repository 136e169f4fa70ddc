// What is done for one stream of an adb connection: a function in a process of its own, which
// already runs as the user that adb's shell is. `host` is a socket to the process that holds the
// connection; its end means that the other side has closed the stream or is gone.
#pragma once

#include "phone/adb/records.h"

// Runs the command of a shell stream. Framed: until it has closed its outputs, then tells its exit
// status; it gets SIGHUP when the other side goes away. Not framed: becomes the command.
[[noreturn]] void serve_shell(int host, const AdbService& service);

// Lists, tells of, sends and receives files. A file that does not arrive whole is removed.
[[noreturn]] void serve_files(int host);
