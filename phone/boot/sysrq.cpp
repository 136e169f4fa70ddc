#include "phone/boot/sysrq.h"

#include <sys/mount.h>
#include <sys/stat.h>

#include "phone/util.h"

bool mask_sysrq_trigger(const std::string& proc, const std::string& mask, std::string* error) {
  const std::string trigger = proc + "/sysrq-trigger";
  struct stat before, wanted, after;
  if (lstat(trigger.c_str(), &before) != 0) {
    if (errno == ENOENT && access(proc.c_str(), X_OK) == 0) return true;
    *error = errno_text("cannot stat " + trigger);
    return false;
  }
  if (lstat(mask.c_str(), &wanted) != 0 || !S_ISREG(wanted.st_mode)) {
    *error = mask + " is no plain file to put over " + trigger;
    return false;
  }
  if (mount(mask.c_str(), trigger.c_str(), nullptr, MS_BIND, nullptr) != 0) {
    *error = errno_text("cannot put " + mask + " over " + trigger);
    return false;
  }
  if (stat(trigger.c_str(), &after) != 0 || after.st_dev != wanted.st_dev ||
      after.st_ino != wanted.st_ino) {
    *error = trigger + " is still the kernel's";
    return false;
  }
  return true;
}
