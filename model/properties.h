// System properties that more than one file names.
#pragma once

// Debug logging.
constexpr char kEnableProp[] = "persist.sys.zklog.enable";  // begins with "on": on
constexpr char kTypeProp[] = "persist.sys.zklog.type";      // decimal mask; default 1, mobile
constexpr char kSequenceProp[] = "persist.sys.zklog.dir_sequence";  // number of the latest run
constexpr char kQuotaProp[] = "persist.sys.zelka.log.size";         // GiB
constexpr char kDeleteProp[] = "persist.sys.zelka.log.del";         // "true": the quota is kept
constexpr char kSelfLogProp[] = "persist.sys.logger.enable";        // begins with "on": on
// Where the run will lie when it is finished. Vendor services may set it: the daemon reads it only
// where it sorts the Wi-Fi logs.
constexpr char kStorePathProp[] = "sys.harrowmossd.log_store_path";

// Switches that one step sets and another clears.
constexpr char kBtsnoopProp[] = "persist.bluetooth.btsnoopenable";
constexpr char kFingerprintDumpProp[] = "sys.zelka.fp.dump";
constexpr char kModemDumpProp[] = "sys.zelka.modemdump";
constexpr char kSystraceProp[] = "persist.sys.systrace.enable";

// The platform's.
constexpr char kMountedProp[] = "vold.mounted";  // begins with '0': shared storage is not mounted
constexpr char kRebootProp[] = "sys.android.reboot";
constexpr char kDisplayIdProp[] = "ro.build.display.id";
constexpr char kVendorDisplayIdProp[] = "ro.vendor.build.display.id";
constexpr char kSdkProp[] = "ro.build.version.sdk";
