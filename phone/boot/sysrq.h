// Keeps a forced crash dump inside the phone: "echo c > /proc/sysrq-trigger" as root would take the
// whole machine down.
#pragma once

#include <string>

// Puts the plain file `mask` over PROC/sysrq-trigger by a bind mount, and checks that the trigger
// is now that very file. True when it is so, also when this kernel has no trigger (nothing to
// mask). False with one line in `error` in every other case: the phone must not boot then.
bool mask_sysrq_trigger(const std::string& proc, const std::string& mask, std::string* error);
