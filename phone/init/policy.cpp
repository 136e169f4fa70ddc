#include "phone/init/policy.h"

#include <linux/capability.h>

#include <algorithm>
#include <iterator>
#include <vector>

#include "phone/util.h"

namespace {

// By number, as linux/capability.h has them; the policy's classes "capability" and "capability2".
constexpr const char* kNames[] = {"chown",
                                  "dac_override",
                                  "dac_read_search",
                                  "fowner",
                                  "fsetid",
                                  "kill",
                                  "setgid",
                                  "setuid",
                                  "setpcap",
                                  "linux_immutable",
                                  "net_bind_service",
                                  "net_broadcast",
                                  "net_admin",
                                  "net_raw",
                                  "ipc_lock",
                                  "ipc_owner",
                                  "sys_module",
                                  "sys_rawio",
                                  "sys_chroot",
                                  "sys_ptrace",
                                  "sys_pacct",
                                  "sys_admin",
                                  "sys_boot",
                                  "sys_nice",
                                  "sys_resource",
                                  "sys_time",
                                  "sys_tty_config",
                                  "mknod",
                                  "lease",
                                  "audit_write",
                                  "audit_control",
                                  "setfcap",
                                  "mac_override",
                                  "mac_admin",
                                  "syslog",
                                  "wake_alarm",
                                  "block_suspend",
                                  "audit_read",
                                  "perfmon",
                                  "bpf",
                                  "checkpoint_restore"};
static_assert(std::size(kNames) == CAP_CHECKPOINT_RESTORE + 1);

std::vector<std::string> lines_of(std::string_view text) {
  std::vector<std::string> lines = split(text, "\n");
  for (std::string& line : lines) line.resize(std::min(line.find('#'), line.size()));
  return lines;
}

}  // namespace

uint64_t granted_capabilities(std::string_view te, const std::string& domain) {
  uint64_t granted = 0;
  for (const std::string& line : lines_of(te)) {
    const std::vector<std::string> words = split(line, " \t{};");
    if (words.size() < 4 || words[0] != "allow" || words[1] != domain) continue;
    if (words[2] != "self:capability" && words[2] != "self:capability2") continue;
    for (size_t number = 0; number < std::size(kNames); number++) {
      if (std::find(words.begin() + 3, words.end(), kNames[number]) != words.end())
        granted |= uint64_t{1} << number;
    }
  }
  return granted;
}

bool has_property_row(std::string_view contexts, const std::string& key) {
  for (const std::string& line : lines_of(contexts)) {
    const std::vector<std::string> words = split(line, " \t");
    if (words.size() > 2 && words[0] == key && words[2] == "exact") return true;
  }
  return false;
}
