// Switching debug logging on and off.
#pragma once

// Starts a run, when logging is switched on and there is room: takes the next number, makes and
// publishes the run's directories, and starts every logger type of the mask. Always 0. Main process
// or size monitor, main thread. Takes as long as the start routines do, and up to 5 minutes more
// for a bug report when these are enabled.
int start_debug_log();

// Ends the run: switches off what the start switched on, harvests crash artefacts, ends every
// worker within its bound, and moves the run to "/sdcard/zelkalog/". Also when nothing runs. Always
// 0. Main process or size monitor. Bounds: 3.1 s a worker, 6 s for their leftovers, kCompletionMs
// for the captures' files and again for the self log's, the vendor's move budget, 120 s for each
// platform tool, 5 minutes for a bug report when enabled. The moves, and the end of the trace
// service's worker, take as long as they take.
int stop_debug_log();

// When the size monitor has started a run: makes it the current one here, and ends the previous
// run's workers that only this process knows. Main process, at every safe point.
void end_superseded_workers();

// Ends all children of the main thread except the size monitor, the kernel-log worker and the child
// of the current request; and the workers of the size monitor. Main process.
void end_logging_leftovers();

// Writes the name of a run started now into `out` (32 bytes): "<sequence>#MM-DD_hh-mm-ss", without
// "<sequence>#" when that is below 1. Returns its length.
int get_current_datetime_with_sequence(char* out, int sequence);

// Asks init, on models with the legacy modem logger, to relabel the media log tree.
void restorecon_media_zelkalog();

// Switches debug logging off, for good, when "/sdcard" has 64 MiB or less or "/data" 128 MiB or
// less for ordinary users.
void detail_avail_storage_space();

// Writes bugreport/bugreport_start.zip or bugreport_stop.zip into `store_path` when bug reports are
// enabled, waiting up to about 5 minutes.
void catch_bugreport(bool start, const char* store_path);
