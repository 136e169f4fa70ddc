// The daemon itself: start-up, control socket, requests, signals. All of it runs in the main
// process on its main thread unless a function says otherwise.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "base/process.h"  // s_harrowmossd_pid

namespace android {
class Parcel;
}

// Everything that main() does, in its order, up to serving requests for ever. Ends the process with
// status 1 when there is no control socket to listen on.
[[noreturn]] void run_daemon();

// Allocates the tables of workers (debuglog/workers.h), zeroed. Main process, before the first
// worker.
void initialize_globals();

// Frees them. Main process, on its way out.
void free_globals();

// Keeps each of the run's two secure-world traces below 20 MiB, with five generations. Monitor
// thread.
void rotate_traces();

// Calls rotate_traces() once a second. Thread body.
void* monitorThread(void*);

// Blocks the handled signals on the calling thread for good; children start with none blocked.
void block_handled_signals();

// Installs the dispositions that the main process has and every child inherits until it execs. The
// main process handles a signal at its next safe point; a child handles it at once.
void install_signal_handlers();

// Serves connections on the listening socket for ever.
[[noreturn]] void serve_connections(int listen_fd);

// Serves one connection until it ends, and closes it. In a child that came back from a handler it
// ends the process.
void serve_connection(int fd);

// Reads or writes exactly `len` bytes, handling signals while it waits. 0, or -2 after a log line.
// Logs the bytes after reading and before writing; a dump of more than 1023 characters aborts.
int readx(int fd, void* buf, int len);
int writex(int fd, const void* buf, int len);

// Logs `len` bytes in hexadecimal, each without leading zero and with a dash.
void printSocketData(const char* tag, const void* data, int len);

// Decodes one request, calls its handler and leaves the reply in `reply`.
void execute(const android::Parcel& request, android::Parcel& reply);

// One row of the request table. `handler` reads its arguments from `request`, writes its fields to
// `reply`, and reports failure only through them.
struct RequestRow {
  int32_t code;
  int (*handler)(const android::Parcel& request, android::Parcel& reply);
};
constexpr int kRequestCount = 16;
extern const RequestRow kRequests[kRequestCount];  // row i serves code i + 1

// `n` UTF-16 units as modified UTF-8 (NUL as C0 80, surrogates each on their own) in a new
// malloc()ed string that the caller frees; null for a null `s`, a length that overflows, or no
// memory.
char* strndup16to8(const char16_t* s, size_t n);

// Does nothing: feedback leaves nothing running. A step of the orderly shutdown.
void stop_feedback_log();
