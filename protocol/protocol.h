// The control protocol's shared names and limits: the daemon checks its own tables against these,
// and the client and the tests build and read messages from them. Only constants; the wire format
// is described in docs/control-protocol.md.
#pragma once

#include <stddef.h>
#include <stdint.h>

// The name of the reserved local socket (/dev/socket/harrowmossd).
constexpr const char* kControlSocketName = "harrowmossd";

constexpr int32_t kProtocolVersion = 1;  // what request 1 answers

// Request payloads are 1..1023 bytes; the daemon hangs up on any other length.
constexpr size_t kPayloadMax = 1023;

// The daemon dumps every message as text ("%x-" a byte) into 1024 bytes, terminator included, and
// aborts when that overflows. A client must never send a payload whose text is longer than this.
constexpr size_t kDumpTextMax = 1023;

// One bit of a mask with the name people use for it.
struct named_bit {
  int32_t mask;       // exactly one bit
  const char* name;   // for logger types also the directory and process-name suffix
  const char* about;  // one line: what it captures, and what it leaves behind
};

// clang-format off

// Logger types, in the order in which the daemon starts them; not in bit order, keep it so.
inline constexpr named_bit kLoggerTypeNames[] = {
    {0x0001, "mobile",      "logcat of all buffers, qrtr IPC log; mobile/ and qrtr_last.txt"},
    {0x0002, "modem",       "vendor modem diagnostic logger, with .DIAG.cfg; modem/, moved in by the vendor at the stop"},
    {0x0004, "net",         "packet capture and network snapshots at start and stop; net/"},
    {0x0008, "power",       "kernel power debugging, fuel gauge, power scripts; power/ and fg/"},
    {0x0020, "fingerprint", "secure-world and trust-zone traces, rotated; fingerprint/"},
    {0x0080, "dump",        "full dumps on a crash or the power key (restart levels 1); nothing of its own"},
    {0x0040, "wifi",        "Wi-Fi firmware log of the vendor service; wlan_logs/ after the stop"},
    {0x0100, "coredump",    "core dumps of native crashes (persist.debug.trace); nothing of its own"},
    {0x0010, "touch",       "input events of the touch devices; touch/"},
    {0x0200, "systrace",    "the platform's trace service; traces moved to zelkalog/traces at the stop"},
    {0x0400, "MPSSDump",    "watchdog of modem and sleep counters: may crash the phone on purpose; mpss_dump/"},
    {0x1000, "memory",      "the platform's memory debugging switch; nothing of its own"},
    {0x4000, "sensor",      "sensor service log and the light sensor's kernel messages; nothing of its own"},
    {0x2000, "anrDumpsys",  "dumpsys beside each ANR; with the ANR traces of the run"},
};

// Bits of the same mask that start nothing but change how a run is captured; not part of "all".
inline constexpr named_bit kLoggerOptionNames[] = {
    {0x10000, "longlogcat", "keep 39 rotated files of 100 MiB for each logcat buffer of \"mobile\""},
};

// Pieces of a feedback bundle, in the order in which the daemon collects them.
inline constexpr named_bit kFeedbackNames[] = {
    {0x04000, "bootfail",     "ANR traces; moves the boot-failure log into the general staging area"},
    {0x00010, "general",      "the app's staged files and the last 80000 lines of each log buffer (7 s at most)"},
    {0x00020, "tombstone",    "native crash reports, /data/tombstones"},
    {0x00040, "anr",          "traces of applications not responding, /data/anr"},
    {0x00080, "pstore",       "what the previous kernel left, /sys/fs/pstore"},
    {0x00100, "memory",       "accepted, collects nothing"},
    {0x00200, "systrace",     "accepted, collects nothing"},
    {0x00400, "screenrecord", "accepted, collects nothing"},
    {0x00800, "cell",         "accepted, collects nothing"},
    {0x01000, "power",        "output of the platform's power feedback script"},
    {0x02000, "mtkdb",        "newest fatal entry of /data/aee_exp; removes /data/aee_exp"},
    {0x08000, "bluetooth",    "moves the Bluetooth logs to /data/misc/zelkalog/btlog, not to the bundle"},
    {0x10000, "minidump",     "asks the vendor service to move its minidumps here (2.5 s at most)"},
};

// What a request carries behind its code and serial.
enum class request_arguments {
  kNone,
  kMask,         // int32
  kPath,         // String16
  kMaskPathInt,  // int32, String16, int32 (read and not used)
};

// What a reply carries behind the echoed code and serial. Any reply may end before it: then the
// request had nothing to tell, which is not an error.
enum class reply_fields {
  kNone,
  kInt,   // int32
  kText,  // int32 length without terminator, CString
};

struct request_name {
  int32_t code;
  const char* command;  // the client's sub-command
  const char* handler;  // the daemon's function
  request_arguments arguments;
  reply_fields reply;
};

// Every request, by code.
inline constexpr request_name kRequestNames[] = {
    { 1, "version",         "do_get_version",            request_arguments::kNone,        reply_fields::kInt},
    { 2, "start",           "do_start_debug_log",        request_arguments::kMask,        reply_fields::kInt},
    { 3, "stop",            "do_stop_debug_log",         request_arguments::kNone,        reply_fields::kInt},
    { 4, "feedback-start",  "do_start_feedback_log",     request_arguments::kNone,        reply_fields::kNone},
    { 5, "feedback-stop",   "do_stop_feedback_log",      request_arguments::kNone,        reply_fields::kNone},
    { 6, "feedback",        "do_get_feedback_log",       request_arguments::kMaskPathInt, reply_fields::kInt},
    { 7, "build-state",     "do_get_build_state",        request_arguments::kNone,        reply_fields::kInt},
    { 8, "no-service",      "do_no_service_catch_modem", request_arguments::kNone,        reply_fields::kInt},
    { 9, "log-dir",         "do_get_pstore_dir",         request_arguments::kNone,        reply_fields::kText},
    {10, "system-size",     "do_get_system_mount_size",  request_arguments::kNone,        reply_fields::kText},
    {11, "build-id",        "do_get_build_id",           request_arguments::kNone,        reply_fields::kText},
    {12, "delete-logs",     "do_del_log",                request_arguments::kNone,        reply_fields::kNone},
    {13, "move-traces",     "do_move_trace",             request_arguments::kNone,        reply_fields::kNone},
    {14, "copy-traces",     "do_copy_sys_trace_log",     request_arguments::kPath,        reply_fields::kInt},
    {15, "copy-kernel-log", "do_copy_kernel_pmic",       request_arguments::kPath,        reply_fields::kInt},
    {16, "boot-reason",     "do_get_boot_reason",        request_arguments::kNone,        reply_fields::kText},
};

// clang-format on

// True when every row has one bit that no other row has.
template <size_t N>
constexpr bool bits_are_distinct(const named_bit (&table)[N]) {
  uint32_t seen = 0;
  for (const named_bit& row : table) {
    const uint32_t bit = static_cast<uint32_t>(row.mask);
    if (bit == 0 || (bit & (bit - 1)) != 0 || (seen & bit) != 0) return false;
    seen |= bit;
  }
  return true;
}
static_assert(bits_are_distinct(kLoggerTypeNames), "each logger type needs a bit of its own");
static_assert(bits_are_distinct(kFeedbackNames), "each selection needs a bit of its own");

constexpr bool requests_are_in_code_order() {
  int32_t code = 0;
  for (const request_name& row : kRequestNames) {
    if (row.code != ++code) return false;
  }
  return true;
}
static_assert(requests_are_in_code_order(), "rows are found by code - 1");
