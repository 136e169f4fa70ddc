// Masks /proc/sysrq-trigger: "echo c" into it as root would crash the whole machine.
#pragma once

#include <string>

// Bind-mounts the regular file `mask` over PROC/sysrq-trigger and checks that the trigger is now
// that file. True also when this kernel has no trigger. Otherwise false with one line in `error`:
// the phone must not boot.
bool mask_sysrq_trigger(const std::string& proc, const std::string& mask, std::string* error);
