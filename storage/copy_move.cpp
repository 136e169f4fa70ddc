#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "base/text.h"
#include "selflog/log.h"
#include "storage/measure.h"
#include "storage/shell.h"
#include "storage/utils.h"

namespace {

constexpr char kLogSource[] = "utils";
constexpr size_t kCommandSize = 256;  // with its NUL; a longer command aborts
constexpr size_t kFirstLineSize = 512;

// What all names of a pattern may take together: the kernel refuses more than a quarter of the
// stack limit, 2 MiB at the usual 8 MiB, the environment and a pointer for each name included.
constexpr size_t kPatternBytes = 1024 * 1024;

enum class composed { ok, too_long, not_escapable };

// Escapes a source: a last component "*" stays a pattern.
bool append_source(std::string* out, const char* src) {
  std::string dir;
  if (!pattern_directory(src, &dir)) return append_escaped(out, src);
  if (!append_escaped(out, dir.c_str())) return false;
  *out += '*';
  return true;
}

// Whether the shell can give all names of a pattern to one command.
bool pattern_fits(const char* src) {
  size_t bytes = 0;
  for (const std::string& entry : pattern_entries(src)) {
    bytes += entry.size() + 1 + sizeof(char*);
  }
  return bytes < kPatternBytes;
}

// Puts the command's text together. `dst` is "" where there is none.
composed compose(shell_command which, const char* options, const char* src, const char* dst,
                 std::string* out) {
  std::string from;
  std::string to;
  if (!append_source(&from, src) || !append_escaped(&to, dst)) return composed::not_escapable;
  switch (which) {
    case shell_command::copy_file:
      *out = "cp " + from + " " + to;
      break;
    case shell_command::copy_dir:
      *out = "cp -a " + from + " " + to + "; chmod -R 777 " + to;
      break;
    case shell_command::copy_dir2:
      *out = "cp -a " + from + " " + to + " ; chmod -R 777 " + to;
      break;
    case shell_command::move_dir:
      *out = std::string("mv ") + options + " " + from + " " + to + " ; chmod -R 777 " + to;
      break;
    case shell_command::delete_dir:
      *out = "rm -rf " + from;
      break;
  }
  return out->size() < kCommandSize ? composed::ok : composed::too_long;
}

// compose() for a utility: a command that is too long ends the process.
bool compose_or_abort(shell_command which, const char* options, const char* src, const char* dst,
                      std::string* out) {
  const composed result = compose(which, options, src, dst, out);
  if (result == composed::too_long) abort();
  if (result == composed::not_escapable) LOGE("name cannot be given to the shell: %s %s", src, dst);
  return result == composed::ok;
}

int run_command(shell_command which, const char* src, const char* dst) {
  std::string command;
  if (!compose_or_abort(which, "", src, dst, &command)) return -1;
  return run_shell(command.c_str());
}

// Moves the entries of a pattern one by one, oldest run first, as far as each has room: one big run
// does not keep all others. -1 when something stayed, or `src` is no pattern.
int move_entries(const char* src, const char* dst, const char* options) {
  std::vector<std::string> entries = pattern_entries(src);
  const auto number = [](const std::string& path) { return atoi(get_file_name(path.c_str())); };
  std::sort(entries.begin(), entries.end(), [&](const std::string& a, const std::string& b) {
    return std::make_pair(number(a), a) < std::make_pair(number(b), b);
  });
  int result = entries.empty() ? -1 : 0;
  for (const std::string& entry : entries) {
    int64_t needed = 0;
    int64_t available = 0;
    const bool moves = command_fits(shell_command::move_dir, entry.c_str(), dst) &&
                       move_has_room(entry.c_str(), dst, &needed, &available) &&
                       move_dir(entry.c_str(), dst, options) == 0;
    if (!moves) result = -1;
  }
  return result;
}

}  // namespace

bool command_fits(shell_command command, const char* src, const char* dst) {
  std::string text;
  return compose(command, "", src, dst == nullptr ? "" : dst, &text) == composed::ok;
}

int copy_file(const char* src, const char* dst) {
  return run_command(shell_command::copy_file, src, dst);
}

int copy_dir(const char* src, const char* dst) {
  if (pattern_fits(src)) return run_command(shell_command::copy_dir, src, dst);
  for (const std::string& entry : pattern_entries(src)) {
    const bool fits = command_fits(shell_command::copy_dir, entry.c_str(), dst);
    if (!fits || run_command(shell_command::copy_dir, entry.c_str(), dst) != 0) {
      LOGE("cannot copy %s to %s", entry.c_str(), dst);
      return -1;
    }
  }
  return 0;
}

int copy_dir2(const char* src, const char* dst) {
  std::string command;
  if (!compose_or_abort(shell_command::copy_dir2, "", src, dst, &command)) return -1;
  char line[kFirstLineSize];
  bool said = false;
  const auto on_line = [](void* context, const char* text) {
    bool* first_said = static_cast<bool*>(context);
    if (!*first_said) {
      LOG_AS(ANDROID_LOG_DEBUG, "copy_dir2", "errno(%d:%s) out %s", errno, strerror(errno), text);
    }
    *first_said = true;
  };
  return run_shell_lines(command.c_str(), kUnbounded, line, sizeof(line), on_line, &said);
}

int delete_dir(const char* pattern) {
  if (pattern_fits(pattern)) return run_command(shell_command::delete_dir, pattern, "");
  int result = 0;
  for (const std::string& entry : pattern_entries(pattern)) {
    if (remove_tree(entry.c_str()) != 0) result = -1;
  }
  return result;
}

int remove_tree(const char* path) {
  const char* const argv[] = {"/system/bin/rm", "-rf", "--", path, nullptr};
  return run_program(argv);
}

int move_dir(const char* src, const char* dst, const char* options) {
  if (dst == nullptr) {
    LOGD("dest is null");
    return -1;
  }
  if (is_dir_exist(dst) != 0) mkdir_s(dst);
  std::string command;
  if (!compose_or_abort(shell_command::move_dir, options == nullptr ? "" : options, src, dst,
                        &command)) {
    return -1;
  }
  // mv across file systems removes the source even when the target filled up on the way.
  int64_t needed = 0;
  int64_t available = 0;
  if (!move_has_room(src, dst, &needed, &available)) {
    LOGE("no room to move %s to %s: %lld bytes needed, %lld free", src, dst,
         static_cast<long long>(needed), static_cast<long long>(available));
    return move_entries(src, dst, options);
  }
  if (!pattern_fits(src)) return move_entries(src, dst, options);
  const int result = run_shell(command.c_str());
  LOGD("%s -> %s, ret=%d(%d(%s)).", src, dst, result, errno, strerror(errno));
  return result;
}
