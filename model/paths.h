// Paths of the phone that more than one file names.
#pragma once

// File systems.
inline constexpr char kData[] = "/data";
inline constexpr char kSdcard[] = "/sdcard";
inline constexpr char kMediaRoot[] = "/data/media/0";  // where /data keeps shared storage

// Runs.
inline constexpr char kStoreDir[] = "/sdcard/zelkalog/";  // finished
inline constexpr char kStoreContents[] = "/sdcard/zelkalog/*";
inline constexpr char kMediaStoreDir[] = "/data/media/0/zelkalog/";  // the store through /data
inline constexpr char kWorkingDir[] = "/data/misc/zelkalog/";        // being captured
inline constexpr char kWorkingContents[] = "/data/misc/zelkalog/*";
inline constexpr char kVendorContents[] = "/data/vendor/zelkalog/*";

// The self log, and what lies beside it.
inline constexpr char kSelfLogDir[] = "/data/misc/zelkalog/.logger/";
inline constexpr char kSelfLogFile[] = "/data/misc/zelkalog/.logger/harrowmossd.txt";
inline constexpr char kCollectorFile[] = "/data/misc/zelkalog/.logger/harrowmoss.txt";
inline constexpr char kKernelLog[] = "/data/misc/zelkalog/.logger/kernel_pmic.txt";

// Systraces.
inline constexpr char kTraceDir[] = "/data/local/traces";
inline constexpr char kTraceContents[] = "/data/local/traces/*";
inline constexpr char kStoreTraceDir[] = "/sdcard/zelkalog/traces";

// What feedback bundles are made of.
inline constexpr char kGeneralDir[] = "/sdcard/Android/data/.harrowmoss/general/";
inline constexpr char kPowerFeedbackDir[] =
    "/sdcard/Android/data/.harrowmoss/zklog/feedback/power/";
inline constexpr char kBootFailLog[] = "/cache/boot_fail.log";
inline constexpr char kStagedBootFailLog[] =
    "/sdcard/Android/data/.harrowmoss/general/boot_fail.log";
inline constexpr char kAnrDir[] = "/data/anr";
inline constexpr char kTombstoneDir[] = "/data/tombstones";
inline constexpr char kPstoreDir[] = "/sys/fs/pstore";
inline constexpr char kBluetoothLogs[] = "/data/misc/bluetooth/logs";
inline constexpr char kExceptionDir[] = "/data/aee_exp/";

// Tools and scripts of the platform.
inline constexpr char kShell[] = "/system/bin/sh";
inline constexpr char kChmodTool[] = "/system/bin/chmod";
inline constexpr char kCpTool[] = "/system/bin/cp";
inline constexpr char kMvTool[] = "/system/bin/mv";
inline constexpr char kRmTool[] = "/system/bin/rm";
inline constexpr char kLogcat[] = "/system/bin/logcat";
inline constexpr char kNetScript[] = "/system/etc/get_net_log.sh";
inline constexpr char kFuelGaugeScript[] = "/system/etc/fg_logs_start.sh";
inline constexpr char kPowerStartScript[] = "/system/etc/power_logs_start.sh";
inline constexpr char kPowerStopScript[] = "/system/etc/power_logs_stop.sh";
