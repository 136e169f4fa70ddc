// The file tree of a bench phone, as tables. Values are a real phone's where it has them; sizes and
// contents are kept small.
#pragma once

#include <sys/types.h>

// Android's fixed user numbers.
constexpr uid_t kAidRoot = 0, kAidSystem = 1000, kAidSdcard = 1015, kAidMedia = 1023,
                kAidShell = 2000, kAidBluetooth = 1002, kAidCache = 2001;

constexpr const char* kPhoneDaemon = "/system_ext/bin/harrowmossd";
constexpr const char* kPhoneClient = "/system_ext/bin/harrowmossctl";
constexpr const char* kPhoneInit = "/system/bin/init";
constexpr const char* kPhoneAdbd = "/system/bin/adbd";
constexpr const char* kPhoneRc = "/system/etc/init/harrowmossd.rc";
constexpr const char* kBenchServicesRc = "/system/etc/init/bench_services.rc";

struct DirectoryRow {
  const char* path;
  mode_t mode;
  uid_t uid;
  gid_t gid;
};
struct LinkRow {
  const char* path;
  const char* text;
};
struct MountRow {
  const char* path;
  const char* options;  // of the tmpfs
};
struct ProgramRow {
  const char* from;  // below the launcher's directory, or a program name of the host
  const char* to;
};
struct FileRow {
  const char* path;
  mode_t mode;
  const char* text;
};

// clang-format off
constexpr DirectoryRow kRootDirectories[] = {  // on the root itself, which becomes read-only
    {"/system",         0755, kAidRoot, kAidRoot},
    {"/system/bin",     0755, kAidRoot, kAidShell},
    {"/system/xbin",    0755, kAidRoot, kAidShell},
    {"/system/etc",     0755, kAidRoot, kAidRoot},
    {"/system_ext/bin", 0755, kAidRoot, kAidShell},
    {"/product/bin",    0755, kAidRoot, kAidShell},
    {"/vendor/bin",     0755, kAidRoot, kAidShell},
    {"/odm/bin",        0755, kAidRoot, kAidShell},
    {"/usr",            0755, kAidRoot, kAidRoot},
    {"/data",           0771, kAidSystem, kAidSystem},
    {"/sdcard",         0777, kAidSdcard, kAidSdcard},
    {"/persist",        0771, kAidRoot, kAidSystem},
    {"/cache",          0770, kAidSystem, kAidCache},
    {"/mnt",            0755, kAidRoot, kAidSystem},
    {"/proc",           0555, kAidRoot, kAidRoot},
    {"/sys",            0555, kAidRoot, kAidRoot},
    {"/d",              0700, kAidRoot, kAidRoot},
    {"/dev",            0755, kAidRoot, kAidRoot},
};
constexpr LinkRow kRootLinks[] = {
    {"/bin", "system/bin"},
    {"/etc", "system/etc"},
};
constexpr LinkRow kLateLinks[] = {  // inside the mounts below
    {"/sys/kernel/debug", "../../d"},  // not "/d": through /proc/PID/root that would be the host's
};
constexpr MountRow kMounts[] = {
    {"/persist", "mode=0771,gid=1000,size=32m"},
    {"/cache",   "mode=0770,uid=1000,gid=2001,size=256m"},
    {"/sys",     "mode=0755,size=16m"},
    {"/d",       "mode=0700,size=16m"},
    {"/dev",     "mode=0755,size=512m"},  // with the log buffers
};
constexpr DirectoryRow kDirectories[] = {  // inside the mounts above
    {"/dev/pts",             0755, kAidRoot, kAidRoot},
    {"/dev/socket",          0755, kAidRoot, kAidRoot},
    {"/dev/log",             0755, kAidRoot, kAidRoot},
    {"/dev/input",           0755, kAidRoot, kAidRoot},
    {"/dev/bench",           0777, kAidRoot, kAidRoot},
    {"/data/anr",            0775, kAidSystem, kAidSystem},
    {"/data/tombstones",     0771, kAidSystem, kAidSystem},
    {"/data/property",       0700, kAidRoot, kAidRoot},
    {"/data/local",          0751, kAidRoot, kAidRoot},
    {"/data/local/tmp",      0771, kAidShell, kAidShell},
    {"/data/local/traces",   0777, kAidShell, kAidShell},
    {"/data/misc",           01771, kAidSystem, 9998},
    {"/data/misc/bluetooth", 0770, kAidBluetooth, kAidBluetooth},
    {"/data/misc/bluetooth/logs", 0775, kAidBluetooth, kAidBluetooth},
    {"/data/vendor",         0771, kAidRoot, kAidRoot},
    {"/data/system",         0775, kAidSystem, kAidSystem},
    {"/data/media",          0770, kAidMedia, kAidMedia},
    {"/data/media/0",        0770, kAidMedia, kAidMedia},
    {"/sys/fs/pstore",       0755, kAidRoot, kAidRoot},
    {"/sys/kernel",          0755, kAidRoot, kAidRoot},
};

constexpr const char* kDeviceNodes[] = {
    "/dev/null", "/dev/zero", "/dev/full", "/dev/random", "/dev/urandom", "/dev/tty", "/dev/kmsg",
};

constexpr ProgramRow kOwnPrograms[] = {
    {"init",     kPhoneInit},
    {"sh",       "/system/bin/sh"},
    {"adbd",     kPhoneAdbd},
    {"logcat",   "/system/bin/logcat"},
    {"logcat",   "/system/bin/vesk"},
    {"log",      "/system/bin/log"},
    {"journal",  "/system/bin/journal"},
    {"getprop",  "/system/bin/getprop"},
    {"setprop",  "/system/bin/setprop"},
    {"finger",   "/system/bin/finger"},
    {"bench_vendor",   "/vendor/bin/bench_vendor"},
    {"bench_systrace", "/vendor/bin/bench_systrace"},
};
// Android's own shell and userland from Debian; a script journals the call and runs the real `ip`. tr, dd, tar and diff are in Android's toybox but not in Debian's.
constexpr ProgramRow kHostPrograms[] = {
    {"mksh",   "/system/bin/mksh"},
    {"toybox", "/system/bin/toybox"},
    {"ip",     "/system/xbin/ip"},
    {"tr",     "/system/bin/tr"},
    {"dd",     "/system/bin/dd"},
    {"tar",    "/system/bin/tar"},
    {"gzip",   "/system/bin/gzip"},
    {"diff",   "/system/bin/diff"},
};
constexpr const char* kScripts[] = {
    "/system/bin/ip", "/system/bin/iptables", "/system/bin/ip6tables", "/system/bin/dumpsys",
    "/system/bin/bugreportz",
    "/system/etc/get_net_log.sh", "/system/etc/watch_fd.sh", "/system/etc/fg_logs_start.sh",
    "/system/etc/power_logs_start.sh", "/system/etc/power_logs_stop.sh",
    "/system/etc/power_logs_feedback.sh", kPhoneRc, kBenchServicesRc,
};
// Policy sources of the device kit; see init/policy.h.
constexpr const char* kPolicySources[] = {
    "/system/etc/selinux/harrowmossd.te", "/system/etc/selinux/property_contexts",
};
constexpr const char* kToyboxApplets[] = {
    "[", "base64", "basename", "cat", "chgrp", "chmod", "chown", "cksum", "cmp", "comm", "cp",
    "cpio", "cut", "date", "df", "dirname", "dmesg", "du", "echo", "egrep", "env", "expand",
    "fallocate", "false", "fgrep", "file", "find", "flock", "free", "getconf", "grep", "groups",
    "gunzip", "head", "hostname", "id", "inotifyd", "ionice", "kill", "killall", "ln", "logname",
    "ls", "md5sum", "mkdir", "mkfifo", "mknod", "mktemp", "mountpoint", "mount", "mv", "nc",
    "netcat", "netstat", "nice", "nl", "nohup", "nproc", "nsenter", "od", "paste", "patch", "pgrep",
    "pidof", "pkill", "pmap", "printenv", "printf", "ps", "pwd", "readlink", "realpath", "renice",
    "rev", "rm", "rmdir", "sed", "seq", "setsid", "sha1sum", "sha256sum", "sha512sum", "sleep",
    "sort", "split", "stat", "strings", "sync", "tac", "tail", "taskset", "tee", "test", "time",
    "timeout", "top", "touch", "true", "truncate", "tty", "umount", "uname", "uniq", "unlink",
    "unshare", "uptime", "usleep", "uuidgen", "vmstat", "wc", "which", "whoami", "xargs", "xxd",
    "yes", "zcat",
};

constexpr FileRow kCannedFiles[] = {
    {"/sys/class/power_supply/battery/capacity",    0444, "83\n"},
    {"/sys/class/power_supply/battery/temp",        0444, "287\n"},
    {"/sys/class/power_supply/battery/voltage_now", 0444, "4187000\n"},
    {"/sys/class/power_supply/battery/current_now", 0444, "213000\n"},
    {"/sys/block/mmcblk0/device/manfid",            0444, "0x000015\n"},
    {"/sys/class/light/light/debug",                0644, "0\n"},
    {"/sys/zelka_power_debug/enable",               0644, "0\n"},
    {"/sys/module/ipc_router_core/parameters/debug_mask", 0644, "0\n"},
    {"/sys/power/system_sleep/stats", 0444,
     "RPM Mode:aosd\n\tcount:1204\n\tactual last sleep(msec):3105\n"
     "RPM Mode:cxsd\n\tcount:1187\n\tactual last sleep(msec):2988\n"},
    {"/sys/power/rpmh_stats/master_stats", 0444,
     "APSS\n\tVersion:0x1\n\tSleep Count:0x4b4\nMPSS\n\tVersion:0x1\n\tSleep Count:0x1f30\n"},
    {"/d/rpm_master_stats", 0444,
     "APSS\n\txo_count:0x4b4\n\tnumshutdowns:0x11\nMPSS\n\txo_count:0x1f2e\n"
     "\tnumshutdowns:0x9c\n"},
    {"/sys/fs/pstore/console-ramoops-0", 0440, "[    0.000000] Booting Linux on a bench phone\n"},
    {"/system/etc/passwd", 0644,
     "root:x:0:0:root:/:/system/bin/sh\nsystem:x:1000:1000:system:/data:/system/bin/sh\n"
     "shell:x:2000:2000:shell:/data/local/tmp:/system/bin/sh\n"
     "sdcard_rw:x:1015:1015:sdcard_rw:/:/system/bin/sh\n"},
    {"/system/etc/group", 0644,
     "root:x:0:\nsystem:x:1000:\nlog:x:1007:\nsdcard_rw:x:1015:\nshell:x:2000:\n"},
    {"/system/build.prop", 0600, "ro.build.version.sdk=33\n"},
};
// Kernel files that block their reader until the kernel has output. init keeps both ends open, so `cat` waits and a test can write into them.
constexpr const char* kFifos[] = {
    "/d/ipc_logging/qrtr_0/log_cont", "/d/ipc_logging/qrtr_2/log_cont",
    "/d/tzdbg/log", "/d/tzdbg/qsee_log",
};
// clang-format on
