// The masks of the requests: logger types and feedback selections, with the names of their bits.
#pragma once

#include <stddef.h>
#include <stdint.h>

// One bit of a mask with the name people use for it.
struct NamedBit {
  int32_t mask;       // exactly one bit
  const char* name;   // for logger types also the directory and process-name suffix
  const char* about;  // one line: what it captures, and what it leaves behind
};

// The bits of the logger type mask.
constexpr int32_t kTypeMobile = 0x1;
constexpr int32_t kTypeModem = 0x2;
constexpr int32_t kTypeNet = 0x4;
constexpr int32_t kTypePower = 0x8;
constexpr int32_t kTypeTouch = 0x10;
constexpr int32_t kTypeFingerprint = 0x20;
constexpr int32_t kTypeWifi = 0x40;
constexpr int32_t kTypeDump = 0x80;
constexpr int32_t kTypeCoredump = 0x100;
constexpr int32_t kTypeSystrace = 0x200;
constexpr int32_t kTypeMpssDump = 0x400;
constexpr int32_t kTypeMemory = 0x1000;
constexpr int32_t kTypeAnrDumpsys = 0x2000;
constexpr int32_t kTypeSensor = 0x4000;
constexpr int32_t kTypeExtendedLogcat = 0x10000;  // starts nothing: 39 rotated files of each logcat

// The bits of the feedback selection.
constexpr int32_t kSelectGeneral = 0x10;
constexpr int32_t kSelectTombstone = 0x20;
constexpr int32_t kSelectAnr = 0x40;
constexpr int32_t kSelectPstore = 0x80;
constexpr int32_t kSelectMemory = 0x100;
constexpr int32_t kSelectSystrace = 0x200;
constexpr int32_t kSelectScreenrecord = 0x400;
constexpr int32_t kSelectCell = 0x800;
constexpr int32_t kSelectPower = 0x1000;
constexpr int32_t kSelectExceptions = 0x2000;
constexpr int32_t kSelectBootfail = 0x4000;
constexpr int32_t kSelectBluetooth = 0x8000;
constexpr int32_t kSelectMinidump = 0x10000;

// clang-format off

// Logger types, in the order in which the daemon starts them; not in bit order, keep it so.
inline constexpr NamedBit kLoggerTypeNames[] = {
    {kTypeMobile,      "mobile",      "logcat of all buffers, qrtr IPC log; mobile/ and qrtr_last.txt"},
    {kTypeModem,       "modem",       "vendor modem diagnostic logger, with .DIAG.cfg; modem/, moved in by the vendor at the stop"},
    {kTypeNet,         "net",         "packet capture and network snapshots at start and stop; net/"},
    {kTypePower,       "power",       "kernel power debugging, fuel gauge, power scripts; power/ and fg/"},
    {kTypeFingerprint, "fingerprint", "secure-world and trust-zone traces, rotated; fingerprint/"},
    {kTypeDump,        "dump",        "full dumps on a crash or the power key (restart levels 1); nothing of its own"},
    {kTypeWifi,        "wifi",        "Wi-Fi firmware log of the vendor service; wlan_logs/ after the stop"},
    {kTypeCoredump,    "coredump",    "core dumps of native crashes (persist.debug.trace); nothing of its own"},
    {kTypeTouch,       "touch",       "input events of the touch devices; touch/"},
    {kTypeSystrace,    "systrace",    "the platform's trace service; traces moved to zelkalog/traces at the stop"},
    {kTypeMpssDump,    "MPSSDump",    "watchdog of modem and sleep counters: may crash the phone on purpose; mpss_dump/"},
    {kTypeMemory,      "memory",      "the platform's memory debugging switch; nothing of its own"},
    {kTypeSensor,      "sensor",      "sensor service log and the light sensor's kernel messages; nothing of its own"},
    {kTypeAnrDumpsys,  "anrDumpsys",  "dumpsys beside each ANR; with the ANR traces of the run"},
};

// Bits of the same mask that start nothing but change how a run is captured; not part of "all".
inline constexpr NamedBit kLoggerOptionNames[] = {
    {kTypeExtendedLogcat, "longlogcat", "keep 39 rotated files of 100 MiB for each logcat buffer of \"mobile\""},
};

// Feedback selections, in the order in which the daemon collects them.
inline constexpr NamedBit kFeedbackNames[] = {
    {kSelectBootfail,     "bootfail",     "ANR traces; moves the boot-failure log into the general staging area"},
    {kSelectGeneral,      "general",      "the app's staged files and the last 80000 lines of each log buffer (7 s at most)"},
    {kSelectTombstone,    "tombstone",    "native crash reports, /data/tombstones"},
    {kSelectAnr,          "anr",          "traces of applications not responding, /data/anr"},
    {kSelectPstore,       "pstore",       "what the previous kernel left, /sys/fs/pstore"},
    {kSelectMemory,       "memory",       "accepted, collects nothing"},
    {kSelectSystrace,     "systrace",     "accepted, collects nothing"},
    {kSelectScreenrecord, "screenrecord", "accepted, collects nothing"},
    {kSelectCell,         "cell",         "accepted, collects nothing"},
    {kSelectPower,        "power",        "output of the platform's power feedback script"},
    {kSelectExceptions,   "mtkdb",        "newest fatal entry of /data/aee_exp; removes /data/aee_exp"},
    {kSelectBluetooth,    "bluetooth",    "moves the Bluetooth logs to /data/misc/zelkalog/btlog, not to the bundle"},
    {kSelectMinidump,     "minidump",     "asks the vendor service to move its minidumps here (2.5 s at most)"},
};

// clang-format on

// The name of a logger type; null for a mask that is not exactly one of them.
constexpr const char* logger_type_name(int32_t mask) {
  for (const NamedBit& row : kLoggerTypeNames) {
    if (row.mask == mask) return row.name;
  }
  return nullptr;
}

// True when every row has one bit that no other row has.
template <size_t N>
constexpr bool bits_are_distinct(const NamedBit (&table)[N]) {
  uint32_t seen = 0;
  for (const NamedBit& row : table) {
    const uint32_t bit = static_cast<uint32_t>(row.mask);
    if (bit == 0 || (bit & (bit - 1)) != 0 || (seen & bit) != 0) return false;
    seen |= bit;
  }
  return true;
}
static_assert(bits_are_distinct(kLoggerTypeNames), "each logger type needs a bit of its own");
static_assert(bits_are_distinct(kFeedbackNames), "each selection needs a bit of its own");
