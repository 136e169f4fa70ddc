// Files and directories below places that others may write: shared storage, the store, the working
// area (mode 0777), what a client names. A symbolic link that somebody puts there would lead what
// root writes, makes or opens to everybody anywhere; a FIFO would make it wait for ever. The way to
// such a place is the platform's own, and its links are followed: the first component of a path,
// and the names of shared storage; below it no link is.
//
// Nothing here logs; only streams take memory, so the rest may be called in a signal handler. Any
// process, any thread.
#pragma once

#include <stdio.h>
#include <sys/types.h>

constexpr uid_t kSdcardOwner = 1015;  // sdcard_rw, also the group: what the companion app may reach

// Opens the regular file `path` as open() does, close-on-exec. -1 with errno: ELOOP for a link on
// the way below the platform's or at the end, ENXIO for anything else that is no regular file.
int open_file_beneath(const char* path, int flags, mode_t mode = 0);

// The same as a stream of `mode`, to be closed by fclose(); null with errno.
FILE* open_stream_beneath(const char* path, int flags, const char* mode);

// Whether a link stands on `path` below the platform's way or at its end, or at its end something
// that is neither a file nor a directory. What is missing is no trap. A slash at the end does not
// count. To be asked before a command is given a path to write to: it follows links.
bool is_trap(const char* path);

// Makes the one directory `path` with mode 0777 and owner 1015:1015, whatever the umask says. Tells
// the step that failed, with its errno.
enum class MkdirStep { kDone, kMkdir, kChown, kChmod };
MkdirStep make_shared_directory(const char* path);
