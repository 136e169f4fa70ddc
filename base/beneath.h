// Opens and makes files below directories that others can write: shared storage, the store, the
// working area (mode 0777), paths that a client names. A symbolic link planted there could redirect
// root's writes anywhere, and a FIFO could block it forever. The platform's own prefix of a path
// (its first component, and the names of shared storage) may contain links; below it none is
// followed.
//
// Nothing here logs. All but the streams is async-signal-safe. Any process, any thread.
#pragma once

#include <stdio.h>
#include <sys/types.h>

constexpr uid_t kSdcardOwner = 1015;  // sdcard_rw, also the group: what the companion app may reach

// Opens the regular file `path` as open() does, close-on-exec. -1 with errno: ELOOP for a link
// below the platform's prefix, ENXIO for anything else that is not a regular file.
int open_file_beneath(const char* path, int flags, mode_t mode = 0);

// The same as a stream of `mode`, to be closed by fclose(); null with errno.
FILE* open_stream_beneath(const char* path, int flags, const char* mode);

// True when `path` contains a link below the platform's prefix, or ends in something that is
// neither a file nor a directory. A missing path is no trap; a slash at the end is ignored. Check
// it before a command writes to `path`: commands follow links.
bool is_trap(const char* path);

// Makes the directory `path`, whose parent exists, with mode 0777 and owner 1015:1015, regardless
// of the umask. Returns the step that failed, with errno.
enum class MkdirStep { kDone, kMkdir, kChown, kChmod };
MkdirStep make_shared_directory(const char* path);
