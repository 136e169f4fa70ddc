// /sdcard as apps see shared storage: a FUSE file system over a directory, with the restrictions of
// Android's own.
#pragma once

// Mounts it over `mount_point` and starts its server, a child process ("sdcard") that runs until
// the phone ends. `lower` is an open descriptor of the directory below; the caller keeps it.
//
// chmod and chown succeed and do nothing: files have mode 0660, directories 02770, owner media_rw.
// Symbolic links, hard links, FIFOs, sockets and device nodes cannot be created (EPERM); there are
// no extended attributes. Access is not checked: a phone decides by the app's identity, and
// everything in a bench phone is root or system.
//
// False with errno without FUSE: no /dev/fuse, or no permission to use it.
bool mount_sdcard(int lower, const char* mount_point);
