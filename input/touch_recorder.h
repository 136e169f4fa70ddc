// The touch event recorder: writes every event of the touch and proximity devices as one line into
// a rotating text file. One recorder per process and one thread of it; its messages go to the
// Android log without a tag, or to standard error.
#pragma once

// Sets the recording flag. Returns 1. Before the recorder runs, in its process.
int start_tp_log();

// Clears the recording flag; the recorder ends with the next event. Returns 0. Any process, signal
// handlers included.
int stop_tp_log();

// Records until the flag is cleared; does not begin without it. `dir` is the output directory, a
// buffer of 256 bytes to which "/event" is appended in place (too long: abort()); the files are
// "<dir>/event.txt" and its generations. Returns 0 after a normal stop and 1 after a fatal error:
// no watch on /dev/input, no list of it, or a device that gave less than an event. What it opened
// stays open, and a later call starts with new tables.
int gettouchlog(char* dir);

// Opens the input device `path` and, when its name is one of ours, polls it. Returns 0 when it is
// polled now, also when it was before; -1 when it cannot be opened or is none of ours: the
// descriptor of such a device stays open. gettouchlog()'s thread.
int open_device(const char* path);

// Bits of close_device()'s flags.
constexpr int kSayWhenMissing = 0x1;  // a device that is not polled is a line on standard error
constexpr int kRecordRemoval = 0x2;   // the removal is a line in the event file

// Forgets the device `path`; its descriptor stays open. Returns 0, or -1 when it is not polled.
// gettouchlog()'s thread.
int close_device(const char* path, int flags);
