#include "phone/init/rc_commands.h"

#include <sys/stat.h>

#include "phone/init/init_log.h"

namespace {

struct Context {
  const std::vector<std::string>& words;  // the command itself first
  Services* services;
  PropertyArea* properties;
};

bool invalid() {
  errno = EINVAL;
  return false;
}

// mkdir PATH [MODE [USER [GROUP]]]: an existing directory gets mode and owner as well.
bool do_mkdir(const Context& c) {
  mode_t mode = 0755;
  uid_t uid = 0, gid = 0;
  const auto& w = c.words;
  if ((w.size() > 2 && !parse_mode(w[2], &mode)) || (w.size() > 3 && !lookup_aid(w[3], &uid)) ||
      (w.size() > 4 && !lookup_aid(w[4], &gid)))
    return invalid();
  if (mkdir(w[1].c_str(), mode) != 0 && errno != EEXIST) return false;
  return chmod(w[1].c_str(), mode) == 0 && chown(w[1].c_str(), uid, gid) == 0;
}

bool do_chown(const Context& c) {  // chown USER [GROUP] PATH
  uid_t uid, gid = static_cast<gid_t>(-1);
  if (!lookup_aid(c.words[1], &uid)) return invalid();
  if (c.words.size() > 3 && !lookup_aid(c.words[2], &gid)) return invalid();
  return lchown(c.words.back().c_str(), uid, gid) == 0;
}

bool do_chmod(const Context& c) {
  mode_t mode;
  return parse_mode(c.words[1], &mode) ? chmod(c.words[2].c_str(), mode) == 0 : invalid();
}

bool do_write(const Context& c) {
  return write_file(c.words[1], c.words[2], 0600);
}
bool do_rm(const Context& c) {
  return unlink(c.words[1].c_str()) == 0;
}
bool do_setprop(const Context& c) {
  return c.properties->set(c.words[1].c_str(), c.words[2].c_str()) == 0 || invalid();
}
bool do_start(const Context& c) {
  return c.services->start(c.words[1]);
}
bool do_stop(const Context& c) {
  return c.services->stop(c.words[1]);
}
bool do_restart(const Context& c) {
  return c.services->restart(c.words[1]);
}
bool do_class_start(const Context& c) {
  c.services->start_class(c.words[1]);
  return true;
}
bool do_class_stop(const Context& c) {
  c.services->stop_class(c.words[1]);
  return true;
}
bool do_restorecon(const Context&) {
  return true;
}  // no SELinux; the call is logged in init.log

constexpr struct {
  const char* name;
  bool (*run)(const Context&);  // false with errno
} kCommands[] = {
    {"mkdir", do_mkdir},
    {"chown", do_chown},
    {"chmod", do_chmod},
    {"write", do_write},
    {"rm", do_rm},
    {"setprop", do_setprop},
    {"start", do_start},
    {"stop", do_stop},
    {"restart", do_restart},
    {"class_start", do_class_start},
    {"class_stop", do_class_stop},
    {"restorecon", do_restorecon},
    {"restorecon_recursive", do_restorecon},
};

}  // namespace

void run_rc_commands(const std::vector<RcCommand>& commands, Services* services,
                     PropertyArea* properties) {
  for (const RcCommand& command : commands) {
    std::string text = "line " + std::to_string(command.line) + ":";
    for (const std::string& word : command.words) text += " " + word;
    for (const auto& known : kCommands) {
      if (command.words[0] != known.name) continue;
      errno = 0;
      const bool done = known.run({command.words, services, properties});
      init_log(done ? text : errno_text(text));
    }
  }
}
