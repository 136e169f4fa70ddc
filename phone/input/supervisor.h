// Virtual input devices for a bench phone, without uinput: a seccomp filter hands the few system
// calls that make up a device to a supervisor process, so that unmodified programs see nodes in
// /dev/input that have names, deliver events, and hang up when unplugged.
//
// The filter selects openat() for reading and writing without O_CREAT (the supervisor lets paths
// outside /dev/input continue) and the EVIOC requests for name, location, unique id and clock.
// Every opener gets a pipe of its own, as every opener of a real device has its own queue.
// docs/touch-log.md shows `finger`, which plugs the devices and sends the events.
#pragma once

#include <sys/types.h>

// Starts the supervisor as a child and puts the calling process and all its future children under
// the filter. Returns once devices can be plugged: the child's pid, or -1 with errno (EBUSY: the
// machine already has such a listener for us). Needs CAP_SYS_ADMIN in its user namespace. Called by
// the phone's init before it has threads.
pid_t start_input_supervisor();
