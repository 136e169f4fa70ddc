// Input devices for a bench phone, without the kernel's help: a seccomp filter hands the few system
// calls that make a device to a supervisor process, so that unmodified programs see nodes in
// /dev/input that have names, deliver events, and hang up when they are unplugged.
//
// The filter asks for openat() for reading and writing without O_CREAT (the supervisor lets all but
// those below /dev/input go on) and for the EVIOC requests of name, location, unique id and clock.
// Every opener gets a pipe of its own, as every opener of a real device has a queue of its own.
// docs/touch-log.md shows `finger`, which plugs the devices and moves the fingers.
#pragma once

#include <sys/types.h>

// Starts the supervisor as a child and puts the calling process, and all that it will start, under
// the filter. Returns once devices can be plugged: the child's pid, or -1 with errno (EBUSY: this
// machine supervises us already). Needs CAP_SYS_ADMIN in its user namespace. The phone's init,
// before it has threads.
pid_t start_input_supervisor();
