#include "client/commands.h"

#include "client/connection/requests.h"
#include "client/doctor/doctor.h"
#include "client/merge/log_command.h"
#include "client/pack/pack.h"
#include "client/runs/run_check.h"
#include "client/runs/runs.h"
#include "client/space/estimate.h"
#include "client/space/quota.h"
#include "client/status/status.h"
#include "client/view/view_command.h"

namespace {

// Seconds to wait for the daemon's answer.
constexpr int kQuick = 10;   // queries
constexpr int kCopy = 120;   // feedback and copies: bounded collectors, but copies of any size
constexpr int kStop = 540;   // closing bug report (300), workers (3.1 each), vendor moves, the move
constexpr int kStart = 960;  // opening bug report, starts, and a whole stop when types change
constexpr int kLocal = 0;    // the daemon is not asked

constexpr unsigned kForFeedback = kTakesDryRun | kTakesSelect | kTakesEstimate;

constexpr const RequestName* request(int32_t code) {
  return &kRequestNames[code - 1];
}

}  // namespace

// clang-format off

// name, arguments, min, max, time-out, dangerous, options, request, function, summary, details
constexpr Command kCommands[kCommandCount] = {
    {"status", "", 0, 0, kLocal, false, kTakesNone, nullptr, run_status,
     "what is captured, where, and by which processes",
     "Reads properties, /proc and directory sizes only; the daemon is not disturbed, so it works while\n"
     "another client holds it. Processes of root are seen by root and by the group readproc.\n"},
    {"types", "", 0, 0, kLocal, false, kTakesNone, nullptr, run_types,
     "logger types and feedback selections by name", ""},
    {"runs", "", 0, 0, kLocal, false, kTakesNone, nullptr, run_runs,
     "the runs on the phone and the holes in their logs",
     "A run is complete, capturing, or left-behind (it was never moved to shared storage). Types marked\n"
     "\"seen\" are guessed from the content; types that leave no files are then missing.\n"
     "A replaced logcat means lines lost before the named file; rotated-out generations are lost\n"
     "when the oldest one kept does not begin the way a logcat begins, or when one is missing between.\n"},
    {"check", "RUN", 1, 1, kLocal, false, kTakesNone, nullptr, run_check,
     "what a run should contain by its types, and what it lacks",
     "RUN: a name or number of `runs`. Shows what is missing, empty, or lost between two logcats or by\n"
     "rotation; the exit code is 1 then. A note is not counted: that file may be legitimately absent.\n"},
    {"log", "RUN", 1, 1, kLocal, false, kTakesLines, nullptr, run_log,
     "one list of a run's log buffers, by time",
     "RUN: a name or number of `runs`, a directory, or an archive of `pack`. Lines that begin with dashes\n"
     "are added: holes, a clock that was set back, the daemon's actions.\n"
     "  --since T, --until T    from T on, up to T\n"
     "  --around T[,SECONDS]    SECONDS (30) before and after T\n"
     "  --buffer LIST           main, system, radio, events, crash, kernel, touch, daemon; without it all\n"
     "                          but touch\n"
     "  --tag LIST, --pid LIST, --level L    of these tags and pids; of level V, D, I, W, E, F or above\n"
     "  --grep TEXT [-E]        lines with TEXT; with -E an extended regular expression\n"
     "  --count                 a table instead: lines by buffer and level\n"
     "  --follow                continues while the run is captured\n"
     "T: \"[YYYY-]MM-DD hh:mm[:ss]\"; hh:mm[:ss], the first of the run; +N or -N[s|m|h|d], after its start\n"
     "or before its end. --json gives an object a line.\n"},
    {"view", "RUN -o FILE", 1, 1, kLocal, false, kTakesOutput, nullptr, run_view,
     "one page about a run, for a browser",
     "RUN: as of `log`. The page needs no network and stays below 2 MiB. -o - is standard output.\n"},
    {"pack", "RUN", 1, 1, kLocal, false, kTakesOutput | kTakesView, nullptr, run_pack,
     "one .tar.gz of a run or a bundle",
     "RUN: a name or number of `runs`, or the absolute path of a bundle. -o names the archive; without\n"
     "it a run's is /sdcard/RUN.tar.gz, a bundle's lies beside it. -o - writes to standard output:\n"
     "adb exec-out harrowmossctl pack 12 -o - > 12.tar.gz. The manifest comes first in the archive.\n"
     "--view adds the page of `view` behind it.\n"},
    {"du", "", 0, 0, kLocal, false, kTakesNone, nullptr, run_du,
     "used bytes against the quota, and the run that would go next", ""},
    {"doctor", "", 0, 0, kQuick, false, kTakesNone, nullptr, run_doctor,
     "why there is no log, and the remedy",
     "The exit code is 0 when nothing is wrong, else 1.\n"},
    {"version", "", 0, 0, kQuick, false, kTakesDryRun, request(1), run_request,
     "the daemon's protocol version", ""},
    {"start", "TYPES", 1, 1, kStart, false, kTakesDryRun, request(2), run_request,
     "start debug logging",
     "TYPES: names with commas (mobile,net), a number, \"all\"; see `types`. With other types than the\n"
     "current ones the current run is stopped first. Nothing changes, and the result is null, when it\n"
     "is on with the same types. MPSSDump, so also \"all\", may crash the phone on purpose.\n"},
    {"stop", "", 0, 0, kStop, false, kTakesDryRun, request(3), run_request,
     "stop debug logging and move the run to shared storage", ""},
    {"log-dir", "", 0, 0, kQuick, false, kTakesDryRun, request(9), run_request,
     "the name of the daemon's latest run", ""},
    {"feedback", "--select LIST DIRECTORY", 1, 1, kCopy, false, kForFeedback, request(6), run_feedback,
     "collect a feedback bundle",
     "LIST: selections with commas (general,tombstone); see `types`. The directory is made when it is\n"
     "missing; it becomes world-accessible. With --estimate nothing is sent: it shows the\n"
     "bytes of each selection and the room at the destination; the exit code is 1 without room.\n"},
    {"feedback-start", "", 0, 0, kQuick, false, kTakesDryRun, request(4), run_request,
     "accepted by the daemon, does nothing", ""},
    {"feedback-stop", "", 0, 0, kQuick, false, kTakesDryRun, request(5), run_request,
     "accepted by the daemon, does nothing", ""},
    {"build-state", "", 0, 0, kQuick, false, kTakesDryRun, request(7), run_request,
     "whether /system is intact (0) or modified (1)", ""},
    {"build-id", "", 0, 0, kQuick, false, kTakesDryRun, request(11), run_request,
     "the build's fingerprint", ""},
    {"boot-reason", "", 0, 0, kQuick, false, kTakesDryRun, request(16), run_request,
     "why the phone booted", ""},
    {"system-size", "", 0, 0, kQuick, false, kTakesDryRun, request(10), run_request,
     "used bytes of /system", ""},
    {"no-service", "", 0, 0, kQuick, false, kTakesDryRun, request(8), run_request,
     "ask the watchdog for one modem log", "Needs debug logging with the type MPSSDump.\n"},
    {"copy-traces", "DIRECTORY", 1, 1, kCopy, false, kTakesDryRun, request(14), run_request,
     "copy /data/local/traces", "The directory is made when it is missing.\n"},
    {"copy-kernel-log", "DIRECTORY", 1, 1, kCopy, false, kTakesDryRun, request(15), run_request,
     "copy the kernel log that was saved at boot", "The directory is made when it is missing.\n"},
    {"move-traces", "", 0, 0, kStop, false, kTakesDryRun, request(13), run_request,
     "move /data/local/traces/* to /sdcard/zelkalog/traces", ""},
    {"delete-logs", "", 0, 0, kStop, true, kTakesDryRun, request(12), run_request,
     "delete every run, the vendor's logs and /data/anr",
     "Also the run that is being captured, and numbering begins at 1 again.\n"},
    {"raw", "HEX...", 1, 64, kCopy, true, kTakesDryRun, nullptr, run_raw,
     "send a payload given in hexadecimal, show the reply",
     "The 2-byte length is added. A payload that would abort the daemon is never sent.\n"},
    {"help", "[COMMAND]", 0, 1, kLocal, false, kTakesNone, nullptr, run_help, "this, or the help of a command", ""},
};

// clang-format on
static_assert(kCommands[kCommandCount - 1].name != nullptr, "kCommandCount is too large");

const Command* find_command(const std::string& name) {
  for (const Command& row : kCommands) {
    if (name == row.name) return &row;
  }
  return nullptr;
}
