// System properties that more than one file names.
#pragma once

// Debug logging.
// On when it begins with "on"; the size monitor starts only when it is exactly that.
inline constexpr char kEnableProp[] = "persist.sys.zklog.enable";
inline constexpr char kTypeProp[] = "persist.sys.zklog.type";  // decimal mask; default 1, mobile
inline constexpr char kSequenceProp[] = "persist.sys.zklog.dir_sequence";
inline constexpr char kQuotaProp[] = "persist.sys.zelka.log.size";   // GiB
inline constexpr char kDeleteProp[] = "persist.sys.zelka.log.del";   // "true": the quota is kept
inline constexpr char kSelfLogProp[] = "persist.sys.logger.enable";  // begins with "on": on
// Where the run will lie when it is finished. Vendor services may set it: the daemon reads it only
// where it sorts the Wi-Fi logs.
inline constexpr char kStorePathProp[] = "sys.harrowmossd.log_store_path";

// Exactly "true": the second router-log channel.
inline constexpr char kSecondChannelProp[] = "persist.sys.harrowmoss.cfg";

// Switches that one step sets and another clears.
inline constexpr char kBtsnoopProp[] = "persist.bluetooth.btsnoopenable";
inline constexpr char kFingerprintDumpProp[] = "sys.zelka.fp.dump";
inline constexpr char kModemDumpProp[] = "sys.zelka.modemdump";
inline constexpr char kSystraceProp[] = "persist.sys.systrace.enable";

// The platform's. The first begins with '0' while shared storage is not mounted.
inline constexpr char kMountedProp[] = "vold.mounted";
inline constexpr char kRebootProp[] = "sys.android.reboot";
inline constexpr char kDisplayIdProp[] = "ro.build.display.id";
inline constexpr char kVendorDisplayIdProp[] = "ro.vendor.build.display.id";
inline constexpr char kSdkProp[] = "ro.build.version.sdk";
