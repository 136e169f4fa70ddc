// The architecture that seccomp filters of the bench phone and the fault trials check.
#pragma once

#include <linux/audit.h>
#include <stdint.h>

#if defined(__x86_64__)
constexpr uint32_t kArchitecture = AUDIT_ARCH_X86_64;
#elif defined(__aarch64__)
constexpr uint32_t kArchitecture = AUDIT_ARCH_AARCH64;
#else
#error "no seccomp architecture for this machine"
#endif
