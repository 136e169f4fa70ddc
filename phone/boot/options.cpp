#include "phone/boot/options.h"

#include <ctype.h>

#include <functional>

#include "phone/util.h"

const char* const kPhoneUsage = R"(usage: phone [options] [-- COMMAND ARGUMENTS...]

Boots a throw-away Android phone root in namespaces of its own, starts the daemon in it as init would,
and runs COMMAND inside once the daemon listens. Without COMMAND: an interactive shell. The exit status
is COMMAND's; 125 when the phone could not be made, 124 after --timeout. Nothing is left behind.

  --data-size N         size of /data (default 1g)
  --sdcard-size N       size of /sdcard, which is /data/media/0 (default 512m)
  --one-pool            /sdcard takes its room from /data, as on a phone
  --prop KEY=VALUE      set a property before the daemon starts; may be repeated
  --file HOST=PHONE     copy a file over the root before boot, mode kept; may be repeated
  --env NAME=VALUE      environment of the services and of COMMAND; may be repeated
  --loose WHAT          drop a restriction of a real phone: capabilities, data, properties, sdcard,
                        tmp, or all of them ("all"); may be repeated
  --input               virtual input devices, plugged and driven by `finger`
  --no-daemon           start no service; COMMAND runs at once
  --daemon PATH         this daemon instead of the one of the same build
  --pid-file FILE       write the host pid of the phone's init; /proc/PID/root shows the inside
  --failed-logs DIR     when COMMAND fails, keep the phone's logs in DIR/NAME; NAME is what COMMAND
                        wrote into /dev/bench/name, or "phone"
  --adb PORT            adb connect 127.0.0.1:PORT; 0 takes a free port and prints it
  --adb-user USER       user of adb's commands: shell (the default) or root
  --take DIR            copy the files of /data/local/taken to DIR when the phone has ended
  --timeout SECONDS     end the phone after that time
  --help                this text
)";

namespace {

bool normalise_size(const std::string& text, std::string* size) {
  const size_t digits = text.find_first_not_of("0123456789");
  std::string suffix = digits == std::string::npos ? "" : text.substr(digits);
  for (char& c : suffix) c = static_cast<char>(tolower(c));
  if (suffix.size() == 3 && suffix.compare(1, 2, "ib") == 0) suffix.resize(1);
  if (digits == 0 || text.empty() ||
      (suffix != "" && suffix != "k" && suffix != "m" && suffix != "g"))
    return false;
  *size = text.substr(0, digits) + suffix;
  return true;
}

bool has_name(const std::string& pair) {
  const size_t equals = pair.find('=');
  return equals != std::string::npos && equals > 0;
}

using Setter = std::function<bool(PhoneOptions*, const std::string&)>;

const struct {
  const char* name;
  const char* value;  // what it is; null: the option takes none
  Setter set;         // false: not such a value
} kOptions[] = {
    {"--data-size", "a size", [](auto* o, auto& v) { return normalise_size(v, &o->data_size); }},
    {"--sdcard-size", "a size",
     [](auto* o, auto& v) { return normalise_size(v, &o->sdcard_size); }},
    {"--one-pool", nullptr,
     [](auto* o, auto&) {
       o->one_pool = true;
       return true;
     }},
    {"--prop", "KEY=VALUE",
     [](auto* o, auto& v) {
       o->properties.push_back(v);
       return has_name(v);
     }},
    {"--file", "HOST=PHONE with an absolute PHONE",
     [](auto* o, auto& v) {
       const size_t equals = v.rfind('=');
       if (!has_name(v) || v.compare(equals + 1, 1, "/") != 0) return false;
       o->files.emplace_back(v.substr(0, equals), v.substr(equals + 1));
       return true;
     }},
    {"--env", "NAME=VALUE",
     [](auto* o, auto& v) {
       o->environment.push_back(v);
       return has_name(v);
     }},
    {"--no-daemon", nullptr,
     [](auto* o, auto&) {
       o->services = false;
       return true;
     }},
    {"--loose", "capabilities, data, properties, sdcard, tmp or all",
     [](auto* o, auto& v) {
       bool known = false;
       for (const char* word : kLooseWords) {
         if (v != word && v != "all") continue;
         o->loose.insert(word);
         known = true;
       }
       return known;
     }},
    {"--input", nullptr,
     [](auto* o, auto&) {
       o->input = true;
       return true;
     }},
    {"--daemon", "a path",
     [](auto* o, auto& v) {
       o->daemon = v;
       return !v.empty();
     }},
    {"--pid-file", "a path",
     [](auto* o, auto& v) {
       o->pid_file = v;
       return !v.empty();
     }},
    {"--failed-logs", "a path",
     [](auto* o, auto& v) {
       o->failed_logs = v;
       return !v.empty();
     }},
    {"--adb", "a port",
     [](auto* o, auto& v) {
       long port = 0;
       const bool ok = parse_number(v, 0, 65535, &port);
       o->adb_port = static_cast<int>(port);
       return ok;
     }},
    {"--adb-user", "shell or root",
     [](auto* o, auto& v) {
       o->adb_user = v;
       return v == "shell" || v == "root";
     }},
    {"--take", "a path",
     [](auto* o, auto& v) {
       o->taken = v;
       return !v.empty();
     }},
    {"--timeout", "seconds",
     [](auto* o, auto& v) {
       long seconds = 0;
       const bool ok = parse_number(v, 1, 1000000, &seconds);
       o->timeout_s = static_cast<int>(seconds);
       return ok;
     }},
    {"--help", nullptr,
     [](auto* o, auto&) {
       o->help = true;
       return true;
     }},
};

}  // namespace

bool parse_phone_options(const std::vector<std::string>& arguments, PhoneOptions* options,
                         std::string* error) {
  for (size_t i = 0; i < arguments.size(); i++) {
    if (arguments[i] == "--") {
      options->command.assign(arguments.begin() + i + 1, arguments.end());
      break;
    }
    std::string name = arguments[i], value;
    const size_t equals = name.find('=');
    const bool inline_value = equals != std::string::npos;  // --prop=KEY=VALUE
    if (inline_value) {
      value = name.substr(equals + 1);
      name.resize(equals);
    }
    bool known = false;
    for (const auto& option : kOptions) {
      if (name != option.name) continue;
      known = true;
      if (option.value == nullptr && inline_value) {
        *error = name + " takes no value";
        return false;
      }
      if (option.value != nullptr && !inline_value) {
        if (++i == arguments.size()) {
          *error = name + " needs " + option.value;
          return false;
        }
        value = arguments[i];
      }
      if (!option.set(options, value)) {
        *error = name + " needs " + option.value + ", not \"" + value + "\"";
        return false;
      }
    }
    if (!known) {
      *error = "unknown option " + arguments[i] + " (a command goes after \"--\")";
      return false;
    }
  }
  return true;
}
