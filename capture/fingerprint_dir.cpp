#include "capture/fingerprint_dir.h"

#include <atomic>

#include "capture/run.h"
#include "storage/utils.h"

namespace {

// The type's name is a constant of the logger type table; the run's name is read where it is
// shared anyway, so the rotation thread needs nothing but this pointer.
std::atomic<const char*> s_type_name{nullptr};

}  // namespace

std::string fingerprint_log_dir() {
  const char* type_name = s_type_name.load();
  if (type_name == nullptr) return "";
  return std::string(kWorkingDir) + current_run_name() + "/" + type_name;
}

void set_fingerprint_log_dir(const char* name) {
  s_type_name = name;
}
