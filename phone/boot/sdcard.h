// /sdcard as an app's view of shared storage: a FUSE file system over a directory, with what
// Android's own one cannot do left out.
#pragma once

// Mounts it over `mount_point` and starts its server, a child process ("sdcard") that serves it
// until the phone ends. `lower` is the directory that it shows, an open descriptor, which stays the
// caller's.
//
// Owner and mode of a file belong to the file system: chmod and chown succeed and do nothing; what
// is made below gets 0660, a directory 02770, of media_rw. Symbolic links, hard links, FIFOs,
// sockets and device nodes cannot be made (EPERM); there are no extended attributes. Everybody may
// do everything: who may open what is decided by an app's identity on a phone, and everything that
// runs in a bench phone is root or the system.
//
// False with errno when there is no FUSE here: no /dev/fuse, or not for this user.
bool mount_sdcard(int lower, const char* mount_point);
