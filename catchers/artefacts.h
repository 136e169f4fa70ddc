// Artefacts of crashes and hangs that a stop brings into the store. Main process or size monitor;
// moves and copies have no time limit.
#pragma once

// Collects new minidumps, and publishes what the vendor has staged when it is more than 512 KiB.
void copy_minidump_if_needed();

// Moves application heap dumps of more than 64 KiB into the store.
void copy_apps_oom_heapdump();

// Moves traces into the store, or into the working area when their directory in the store cannot be
// made. The argument is not used.
void do_move_traces(const char* ignored);
