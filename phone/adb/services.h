// The services of adb streams. Each runs in a process of its own, already as the right user. `host`
// is a socket to the server; its end means that the other side has closed the stream or is gone.
#pragma once

#include "phone/adb/records.h"

// Runs the command of a shell stream. Framed: relays until it has closed its outputs, then sends
// its exit status; it gets SIGHUP when the other side goes away. Not framed: executes the command.
[[noreturn]] void serve_shell(int host, const AdbService& service);

// Lists, stats, sends and receives files. A file that is received incompletely is removed.
[[noreturn]] void serve_files(int host);
