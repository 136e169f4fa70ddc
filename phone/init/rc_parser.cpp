#include "phone/init/rc_parser.h"

#include <sys/socket.h>

#include <charconv>

#include "phone/util.h"

namespace {

constexpr struct {
  const char* name;
  uid_t id;
} kAids[] = {
    // the part of the platform's fixed list that a log daemon may use
    {"root", 0},         {"daemon", 1},      {"system", 1000},   {"radio", 1001},
    {"bluetooth", 1002}, {"graphics", 1003}, {"input", 1004},    {"audio", 1005},
    {"log", 1007},       {"wifi", 1010},     {"adb", 1011},      {"media", 1013},
    {"sdcard_rw", 1015}, {"media_rw", 1023}, {"sdcard_r", 1028}, {"everybody", 9997},
    {"shell", 2000},     {"net_bt", 3002},   {"inet", 3003},     {"net_raw", 3004},
    {"net_admin", 3005}, {"readproc", 3009}, {"wakelock", 3010}, {"diag", 2002},
    {"misc", 9998},      {"nobody", 9999},   {"cache", 2001},    {"ext_data_rw", 1078},
};

// Commands of actions: name, least and most arguments.
constexpr struct {
  const char* name;
  size_t least, most;
} kCommands[] = {
    {"mkdir", 1, 4},
    {"chown", 2, 3},
    {"chmod", 2, 2},
    {"write", 2, 2},
    {"setprop", 2, 2},
    {"start", 1, 1},
    {"stop", 1, 1},
    {"restart", 1, 1},
    {"rm", 1, 1},
    {"class_start", 1, 1},
    {"class_stop", 1, 1},
    {"restorecon", 1, 16},
    {"restorecon_recursive", 1, 16},
};

struct Line {
  int number;
  std::vector<std::string> words;
};

// Splits logical lines into words: blanks separate, "..." keeps blanks, a backslash at the end of a
// line joins the next line, '#' starts a comment.
class Lexer {
 public:
  explicit Lexer(std::string_view text) : text_(text) {}

  // False at the end. `error` is set when the line is broken.
  bool next(Line* line, std::string* error) {
    error->clear();
    while (at_ < text_.size()) {
      line->number = number_;
      line->words.clear();
      read_line(line, error);
      if (!line->words.empty() || !error->empty()) return true;
    }
    return false;
  }

 private:
  void read_line(Line* line, std::string* error) {
    std::string word;
    bool in_word = false, quoted = false;
    const auto finish = [&] {
      if (in_word) line->words.push_back(word);
      word.clear();
      in_word = false;
    };
    for (; at_ < text_.size(); at_++) {
      const char c = text_[at_];
      if (c == '\n') break;
      if (c == '\\' && at_ + 1 < text_.size() && text_[at_ + 1] == '\n' && !quoted) {
        at_++;
        number_++;
        finish();
      } else if (c == '"') {
        quoted = !quoted;
        in_word = true;
      } else if (!quoted && (c == ' ' || c == '\t' || c == '\r')) {
        finish();
      } else if (c == '#' && !quoted && !in_word) {
        at_ = std::min(text_.find('\n', at_), text_.size());
        break;
      } else {
        word += c;
        in_word = true;
      }
    }
    at_++;  // the newline
    number_++;
    finish();
    if (quoted) *error = "a quote is not closed";
  }

  std::string_view text_;
  size_t at_ = 0;
  int number_ = 1;
};

class Parser {
 public:
  explicit Parser(std::string_view text) : lexer_(text) {}

  RcFile run() {
    Line line;
    std::string error;
    while (lexer_.next(&line, &error)) {
      if (error.empty()) error = take(line);
      if (!error.empty())
        file_.errors.push_back("line " + std::to_string(line.number) + ": " + error);
    }
    return std::move(file_);
  }

 private:
  enum class In { kNothing, kService, kAction };
  using Words = std::vector<std::string>;

  // Each returns "" or an error.
  std::string take(const Line& line) {
    const std::string& first = line.words[0];
    if (first == "service") return begin_service(line.words);
    if (first == "on") return begin_action(line.words);
    if (first == "import") return "import is not supported";
    switch (in_) {
      case In::kNothing:
        return "\"" + first + "\" is outside of a section";
      case In::kService:
        return service_option(line.words);
      case In::kAction:
        return action_command(line);
    }
    return "";
  }

  std::string begin_service(const Words& words) {
    in_ = In::kNothing;
    if (words.size() < 3) return "service needs a name and a program";
    if (words[2][0] != '/') return "the program of " + words[1] + " is not absolute";
    for (const RcService& service : file_.services) {
      if (service.name == words[1]) return "service " + words[1] + " is defined twice";
    }
    in_ = In::kService;
    RcService service;
    service.name = words[1];
    service.command.assign(words.begin() + 2, words.end());
    file_.services.push_back(std::move(service));
    return "";
  }

  std::string begin_action(const Words& words) {
    in_ = In::kNothing;
    RcAction action;
    if (words.size() < 2) return "on needs a trigger";
    for (size_t i = 1; i < words.size(); i++) {
      if (i % 2 == 0) {
        if (words[i] != "&&") return "triggers are joined by &&, not by " + words[i];
        continue;
      }
      constexpr std::string_view kProperty = "property:";
      if (words[i].compare(0, kProperty.size(), kProperty) == 0) {
        const size_t equals = words[i].find('=');
        if (equals == std::string::npos || equals == kProperty.size())
          return "a property trigger has the form property:name=value";
        action.properties.push_back({words[i].substr(kProperty.size(), equals - kProperty.size()),
                                     words[i].substr(equals + 1)});
      } else if (!action.event.empty()) {
        return "an action has at most one boot stage";
      } else {
        action.event = words[i];
      }
    }
    if (words.size() % 2 == 1) return "a trigger is missing after &&";
    in_ = In::kAction;
    file_.actions.push_back(std::move(action));
    return "";
  }

  std::string action_command(const Line& line) {
    for (const auto& command : kCommands) {
      if (line.words[0] != command.name) continue;
      const size_t count = line.words.size() - 1;
      if (count < command.least || count > command.most)
        return line.words[0] + " takes " + std::to_string(command.least) + " to " +
               std::to_string(command.most) + " arguments";
      file_.actions.back().commands.push_back({line.number, line.words});
      return "";
    }
    return "unknown command " + line.words[0];
  }

  std::string service_option(const Words& words);
  static std::string read_socket(const Words& words, RcSocket* socket);

  Lexer lexer_;
  In in_ = In::kNothing;
  RcFile file_;
};

std::string Parser::service_option(const Words& words) {
  constexpr struct {
    const char* name;
    size_t least, most;
  } kOptions[] = {
      {"class", 1, 1},
      {"user", 1, 1},
      {"group", 1, 16},
      {"socket", 3, 6},
      {"disabled", 0, 0},
      {"oneshot", 0, 0},
      // Accepted and ignored:
      {"seclabel", 1, 1},
      {"task_profiles", 1, 8},
      {"priority", 1, 1},
      {"ioprio", 2, 2},
      {"shutdown", 1, 1},
      {"capabilities", 0, 16},
      {"writepid", 1, 8},
      {"oom_score_adjust", 1, 1},
  };
  const std::string& name = words[0];
  const size_t count = words.size() - 1;
  bool known = false;
  for (const auto& option : kOptions) {
    if (name != option.name) continue;
    known = true;
    if (count < option.least || count > option.most)
      return name + " takes " + std::to_string(option.least) + " to " +
             std::to_string(option.most) + " arguments";
  }
  if (!known) return "unknown service option " + name;

  RcService& service = file_.services.back();
  if (name == "class") service.klass = words[1];
  if (name == "disabled") service.disabled = true;
  if (name == "oneshot") service.oneshot = true;
  if (name == "user" && !lookup_aid(words[1], &service.uid)) return "unknown user " + words[1];
  if (name == "group") {
    std::vector<gid_t> groups(count);
    for (size_t i = 0; i < count; i++) {
      if (!lookup_aid(words[i + 1], &groups[i])) return "unknown group " + words[i + 1];
    }
    service.groups = std::move(groups);
  }
  if (name == "socket") {
    RcSocket socket;
    const std::string error = read_socket(words, &socket);
    if (!error.empty()) return error;
    service.sockets.push_back(std::move(socket));
  }
  return "";
}

// socket NAME TYPE MODE [USER [GROUP [SECLABEL]]]
std::string Parser::read_socket(const Words& words, RcSocket* socket) {
  socket->name = words[1];
  if (socket->name.find('/') != std::string::npos) return "a socket name has no /";
  socket->type = words[2] == "stream"      ? SOCK_STREAM
                 : words[2] == "dgram"     ? SOCK_DGRAM
                 : words[2] == "seqpacket" ? SOCK_SEQPACKET
                                           : 0;
  if (socket->type == 0) return "unknown socket type " + words[2];
  if (!parse_mode(words[3], &socket->mode)) return "bad mode " + words[3];
  if (words.size() > 4 && !lookup_aid(words[4], &socket->uid)) return "unknown user " + words[4];
  if (words.size() > 5 && !lookup_aid(words[5], &socket->gid)) return "unknown group " + words[5];
  return "";
}

}  // namespace

RcFile parse_rc(std::string_view text) {
  return Parser(text).run();
}

bool lookup_aid(std::string_view name, uid_t* id) {
  for (const auto& aid : kAids) {
    if (name == aid.name) {
      *id = aid.id;
      return true;
    }
  }
  long number;
  if (!parse_number(name, 0, 0x7fffffff, &number)) return false;
  *id = static_cast<uid_t>(number);
  return true;
}

bool parse_mode(std::string_view text, mode_t* mode) {
  const char* end = text.data() + text.size();
  unsigned value = 0;
  const auto result = std::from_chars(text.data(), end, value, 8);
  if (result.ec != std::errc() || result.ptr != end || value > 07777) return false;
  *mode = value;
  return true;
}
