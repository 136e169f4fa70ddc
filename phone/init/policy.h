// The parts of the device's SELinux policy that a bench phone enforces without SELinux.
#pragma once

#include <stdint.h>

#include <string>
#include <string_view>

// Policy sources of the device kit, in the phone.
constexpr const char* kPolicyFolder = "/system/etc/selinux/";

constexpr uint64_t kEveryCapability = ~uint64_t{0};

// The capabilities that `allow <domain> self:capability ...;` lines of the policy source `te`
// grant: bit N for capability number N. Grants of a debuggable build count.
uint64_t granted_capabilities(std::string_view te, const std::string& domain);

// True when `contexts`, a property_contexts file, has an exact row for `key`.
bool has_property_row(std::string_view contexts, const std::string& key);
