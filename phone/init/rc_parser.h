// Parses the subset of Android's init language that a bench phone supports: services, actions on
// boot stages and on properties. Strict: what init would reject is an error; SELinux labels, task
// profiles and the like are accepted and ignored.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>
#include <vector>

struct RcSocket {
  std::string name;
  int type = 0;  // SOCK_STREAM, SOCK_DGRAM or SOCK_SEQPACKET
  mode_t mode = 0;
  uid_t uid = 0;
  gid_t gid = 0;
};

struct RcService {
  std::string name;
  std::vector<std::string> command;  // program and arguments
  std::string klass = "default";
  uid_t uid = 0;
  std::vector<gid_t> groups;  // the first one is the group, the others supplementary
  std::vector<RcSocket> sockets;
  bool disabled = false;
  bool oneshot = false;
};

struct RcProperty {
  std::string key;
  std::string value;  // "*": any
};

struct RcCommand {
  int line = 0;
  std::vector<std::string> words;
};

// Runs at the boot stage `event` ("": none) and whenever one of `properties` is set and all match.
struct RcAction {
  std::string event;
  std::vector<RcProperty> properties;
  std::vector<RcCommand> commands;
};

struct RcFile {
  std::vector<RcService> services;
  std::vector<RcAction> actions;
  std::vector<std::string> errors;  // "line N: what is wrong"
};

// Reads nothing but `text`. A line with an error is left out, the rest is kept.
RcFile parse_rc(std::string_view text);

// The number of an Android user or group name, or of a decimal number; false when unknown.
bool lookup_aid(std::string_view name, uid_t* id);

// An octal mode of at most 07777.
bool parse_mode(std::string_view text, mode_t* mode);

// True when setting `key` to `value` fires the action's property trigger; `get` returns the other
// properties.
template <typename Get>
bool property_trigger_fires(const RcAction& action, std::string_view key, std::string_view value,
                            Get get) {
  bool concerned = false;
  for (const RcProperty& property : action.properties) {
    const bool this_one = property.key == key;
    const std::string current = this_one ? std::string(value) : get(property.key);
    if (property.value != "*" ? current != property.value : current.empty()) return false;
    concerned = concerned || this_one;
  }
  return concerned && action.event.empty();
}
