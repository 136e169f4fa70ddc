// Names of the daemon's processes: the daemon sets them, the client tells workers apart by them.
#pragma once

#include <stddef.h>

#include <algorithm>
#include <string_view>

constexpr char kDaemonName[] = "harrowmossd";
constexpr char kWorkerPrefix[] = "harrowmossd:debug-";     // before the logger type's name
constexpr char kGeneralPrefix[] = "harrowmossd:general-";  // the logcats of a general collection
constexpr char kSizeMonitorName[] = "harrowmossd-lsm";
constexpr char kCollectorName[] = "harrowmossd:SLC";  // argv[0] of the self log's logcat

// argv[0] of shells that a catcher starts.
constexpr char kFingerprintShell[] = "harrowmossd-fp";
constexpr char kMobileShell[] = "debug/vesk";

// The part of `name` that the kernel keeps, 15 bytes. Cut from the front: the end is the type.
constexpr std::string_view kernel_name(std::string_view name) {
  constexpr size_t kKept = 15;
  return name.substr(name.size() - std::min(name.size(), kKept));
}
