#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "base/text.h"
#include "selflog/log.h"
#include "storage/measure.h"
#include "storage/shell.h"
#include "storage/utils.h"

namespace {

constexpr char kLogSource[] = "utils";
constexpr size_t kCommandSize = 256;  // with its NUL; a longer command aborts
constexpr size_t kFirstLineSize = 512;

enum class composed { ok, too_long, not_escapable };

// Escapes a source: a last component "*" stays a pattern.
bool append_source(std::string* out, const char* src) {
  const size_t length = strlen(src);
  const bool pattern = length >= 2 && strcmp(src + length - 2, "/*") == 0;
  if (!append_escaped(out, std::string(src, pattern ? length - 1 : length).c_str())) return false;
  if (pattern) *out += '*';
  return true;
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

}  // namespace

bool command_fits(shell_command command, const char* src, const char* dst) {
  std::string text;
  return compose(command, "", src, dst == nullptr ? "" : dst, &text) == composed::ok;
}

int copy_file(const char* src, const char* dst) {
  return run_command(shell_command::copy_file, src, dst);
}

int copy_dir(const char* src, const char* dst) {
  return run_command(shell_command::copy_dir, src, dst);
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
  return run_command(shell_command::delete_dir, pattern, "");
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
    return -1;
  }
  const int result = run_shell(command.c_str());
  LOGD("%s -> %s, ret=%d(%d(%s)).", src, dst, result, errno, strerror(errno));
  return result;
}
