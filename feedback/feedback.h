// Feedback bundles: selected diagnostic data in one directory. Main process, request thread; what
// the start and the stop of logging use, also the size monitor. The general dump and the property
// files are made in forked children that are waited for with a bound and killed when they overrun.
#pragma once

#include <stdint.h>

#include <string_view>
#include <vector>

#include "model/paths.h"

// A selection of a bundle. `get` collects it into the directory `dir`; a negative result ends the
// collection.
struct FeedbackGetter {
  int32_t bit;
  int (*get)(const char* dir);
  char name[64];  // for the log
};
constexpr int kFeedbackGetterCount = 13;
extern const FeedbackGetter kFeedbackGetters[kFeedbackGetterCount];  // in the order of the walk

// Why root must not copy `sources` to the destination `path` that a client names:
// judge_destination() (model/destination.h) about what is there now. `fits`: each command composed
// with `path` has room for it. Null when it may be used.
const char* destination_fault(const char* path, const std::vector<std::string_view>& sources,
                              bool fits);

// The same for a feedback bundle: `sources` are those of the selections in `mask`.
const char* feedback_destination_fault(int mask, const char* dir);

// Collects the selections in `mask` into `dir`, in table order, and always the property files.
// Returns the result of the last getter that ran, 0 when none did, or the first negative one.
int get_feedback_log(int mask, const char* dir);

// Writes system<suffix>.prop and others<suffix>.prop (the device report, appended) into `dir`, in a
// child that is killed after about 2 s. Returns 0, or -1 when it cannot be forked.
int copy_system_propertie(const char* dir, const char* suffix);

// The getters that the stop uses too. Each returns 0 unless it says otherwise.
int get_tombstone_log(const char* dir);  // the result of copy_dir2()
int get_anr_log(const char* dir);        // the result of copy_dir2()

// Copies the Bluetooth logs into the daemon's own working area and deletes them; `dir` is not used.
// Left where they are when there is no room for the copy. Returns 0.
int get_bluetooth_log(const char* dir);

// Has the vendor side move its minidumps into `dir`, waiting 2.5 s at most. Returns 1.
int get_minidump_log(const char* dir);

// Dumps the six log buffers and the app's staging area into `dir`. 0, or -1 when it cannot fork.
int get_general_log(const char* dir);

// Ends the logcats of the general collection, waiting for each without bound, and deletes what they
// wrote. Returns the result of the deletion.
int stop_general_log();
