// File and directory utilities. Directories get mode 0777 and owner 1015:1015 (sdcard_rw), so that
// the companion app can read and remove them; files get 0666. None follows a planted symbolic link
// (base/beneath.h): that is one error line and a failure. Failures are logged here.
#pragma once

#include <stdint.h>

#include "base/beneath.h"  // kSdcardOwner
#include "model/paths.h"

// 0 when `path` opens as a directory, -1 otherwise and for null.
int is_dir_exist(const char* path);

// Makes `path` an empty file, mode 0666, owner 1015:1015. 0 or -1.
int creat_file(const char* path);

// The part of `path` behind its last '/' or '\\'; `path` itself without one; null for null.
const char* get_file_name(const char* path);

// 1 when `path` begins with `prefix` and that is a writable directory, else 0.
int checkDirPrefixAccess(const char* path, const char* prefix);

// Makes `path` (shorter than 255 bytes; longer aborts) and its missing parents. 0 when it exists
// afterwards; -1 when storage is not usable yet or a step failed. Existing ones stay as they are.
int creat_dir(const char* path);

// creat_dir(), and below /sdcard/zelkalog/ the same directory through /data/media/0 when that
// fails. 1 on success, 0 otherwise and for null.
int mkdir_s(const char* path);

// The shell commands below take names as they are: every byte that means something to the shell is
// escaped, except a last component "*" of a source, which the shell expands. A command longer than
// 255 bytes aborts (see command_fits()); a name with a newline cannot be escaped and is refused
// with -1. A result is the wait status of the shell, as system() returns it. When "*" stands for
// more names than one command takes, the rest follow in batches, without a shell.
//
// A copy for which there is no room (copy_has_room()) is not begun: one error line, and -1.
int copy_file(const char* src, const char* dst);  // cp
// Copies can read, and a removal can empty, what belongs to the system user alone
// (storage/group_access.h).
int copy_dir(const char* src, const char* dst);   // cp -a, then chmod -R 777 of `dst`
int copy_dir2(const char* src, const char* dst);  // the same; 0 also when left out, -1: not started
int delete_dir(const char* pattern);              // rm -rf

// Moves `src` into the directory `dst`, which is made when missing, and makes it world-accessible
// (chmod -R 777). `options` go to mv (null: none). A move to another file system loses nothing when
// it is interrupted (storage/linked_move.h). One for which there is no room is not begun: one error
// line, and -1; of a pattern those entries are moved that fit, oldest run first. -1 also when
// something did not arrive and is in its place again, and for a null `dst`.
int move_dir(const char* src, const char* dst, const char* options);

// Removes `path` by rm itself, without a shell: for names that do not fit a command. The wait
// status of rm, -1 when it could not be forked.
int remove_tree(const char* path);

enum class ShellCommand { kCopyFile, kCopyDir, kCopyDir2, kMoveDir, kDeleteDir };

// True when `src` and `dst` (null where there is none) can be given to that utility. Ask it first
// for names that come from outside.
bool command_fits(ShellCommand command, const char* src, const char* dst);

// The full path of the newest entry of `dir` (which ends in '/') whose name contains `needle`, in a
// new char[4096] that the caller deletes; empty when there is none, null when `dir` does not open.
char* getLatestFile(const char* dir, const char* needle);

// Bytes of `path` and all that is below it, directories' own sizes included, links followed. A
// directory that contains itself through a link counts once, and so does one that several links
// lead to: directories that link to each other would be walked along every path there is. 0 when
// `path` is missing.
int64_t getFileSize(const char* path);

// Bytes available to ordinary users on the file system of `path`; -1 for null, -2 on failure.
int64_t get_filesystem_size(const char* path);

// Keeps `file_name` in `dir` below `limit` bytes: from `limit` on, generations .1 to .`count` are
// shifted, the live file is copied to .1 and emptied. When it cannot be copied (copy_has_room(), a
// cp that fails) all keep their numbers but the oldest, which is gone, the live file stays as it
// is, one error line says so, and the calling thread rotates nothing for a minute. Only for
// qsee_log.txt, tzbsp.txt and the router log; other names are refused with a log line.
void rotateFpLogs(const char* dir, const char* file_name, unsigned long limit, int count);
