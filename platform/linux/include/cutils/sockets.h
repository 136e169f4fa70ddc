// Local sockets: the platform's own names and signatures, for plain Linux.
#pragma once

#define ANDROID_SOCKET_NAMESPACE_ABSTRACT 0
#define ANDROID_SOCKET_NAMESPACE_RESERVED 1  // /dev/socket/<name>
#define ANDROID_SOCKET_NAMESPACE_FILESYSTEM 2

extern "C" {

// The descriptor that init opened for this service: the number in ANDROID_SOCKET_<name>, or -1 when
// that is not an open socket bound to /dev/socket/<name>. Bytes of `name` outside [A-Za-z0-9] read
// as '_' in the variable. Not close-on-exec; the caller owns it.
int android_get_control_socket(const char* name);

// Connects a new socket of `type` (SOCK_STREAM, SOCK_SEQPACKET, ...) to `name` in the given
// namespace. Returns the descriptor, which the caller owns and which is not close-on-exec, or -1
// with errno.
int socket_local_client(const char* name, int namespaceId, int type);

}  // extern "C"
