// Paths of the phone that more than one file names.
#pragma once

// File systems.
constexpr char kData[] = "/data";
constexpr char kSdcard[] = "/sdcard";
constexpr char kMediaRoot[] = "/data/media/0";  // where /data keeps shared storage

// Runs.
constexpr char kStoreDir[] = "/sdcard/zelkalog/";  // finished
constexpr char kStoreContents[] = "/sdcard/zelkalog/*";
constexpr char kMediaStoreDir[] = "/data/media/0/zelkalog/";  // the store through /data
constexpr char kWorkingDir[] = "/data/misc/zelkalog/";        // being captured
constexpr char kWorkingContents[] = "/data/misc/zelkalog/*";
constexpr char kVendorContents[] = "/data/vendor/zelkalog/*";

// The self log, and what lies beside it.
constexpr char kSelfLogDir[] = "/data/misc/zelkalog/.logger/";
constexpr char kSelfLogFile[] = "/data/misc/zelkalog/.logger/harrowmossd.txt";
constexpr char kCollectorFile[] = "/data/misc/zelkalog/.logger/harrowmoss.txt";
constexpr char kKernelLog[] = "/data/misc/zelkalog/.logger/kernel_pmic.txt";

// Systraces.
constexpr char kTraceDir[] = "/data/local/traces";
constexpr char kTraceContents[] = "/data/local/traces/*";
constexpr char kStoreTraceDir[] = "/sdcard/zelkalog/traces";

// What feedback bundles are made of.
constexpr char kGeneralDir[] = "/sdcard/Android/data/.harrowmoss/general/";
constexpr char kPowerFeedbackDir[] = "/sdcard/Android/data/.harrowmoss/zklog/feedback/power/";
constexpr char kBootFailLog[] = "/cache/boot_fail.log";
constexpr char kStagedBootFailLog[] = "/sdcard/Android/data/.harrowmoss/general/boot_fail.log";
constexpr char kAnrDir[] = "/data/anr";
constexpr char kTombstoneDir[] = "/data/tombstones";
constexpr char kPstoreDir[] = "/sys/fs/pstore";
constexpr char kBluetoothLogs[] = "/data/misc/bluetooth/logs";
constexpr char kExceptionDir[] = "/data/aee_exp/";

// Tools and scripts of the platform.
constexpr char kShell[] = "/system/bin/sh";
constexpr char kChmodTool[] = "/system/bin/chmod";
constexpr char kCpTool[] = "/system/bin/cp";
constexpr char kMvTool[] = "/system/bin/mv";
constexpr char kRmTool[] = "/system/bin/rm";
constexpr char kLogcat[] = "/system/bin/logcat";
constexpr char kNetScript[] = "/system/etc/get_net_log.sh";
constexpr char kFuelGaugeScript[] = "/system/etc/fg_logs_start.sh";
constexpr char kPowerStartScript[] = "/system/etc/power_logs_start.sh";
constexpr char kPowerStopScript[] = "/system/etc/power_logs_stop.sh";
