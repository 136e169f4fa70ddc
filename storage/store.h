// The two roots of finished runs, and the numbering of runs.
#pragma once

// Makes "/data/media/0/zelkalog/" and "/sdcard/zelkalog/" when shared storage is mounted and they
// are missing. Returns 0; failures show in what follows.
int create_store_dir_if_needed();

// The number of the latest run, 0 before the first; also, after one error line, for a stored text
// that is no such number or the last that there is.
int get_log_dir_sequence();
