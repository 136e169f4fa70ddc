#include <dirent.h>
#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "base/beneath.h"
#include "base/scoped.h"
#include "selflog/log.h"
#include "storage/group_access.h"
#include "storage/linked_move.h"
#include "storage/measure.h"
#include "storage/shell.h"
#include "storage/utils.h"

namespace {

constexpr char kLogSource[] = "utils";
constexpr size_t kCommandSize = 256;  // with its NUL; a longer command aborts
constexpr size_t kFirstLineSize = 512;

// What all names of one command may take together: the kernel refuses more than a quarter of the
// stack limit, 2 MiB at the usual 8 MiB, the environment and a pointer for each name included.
constexpr size_t kNamesBytes = 1024 * 1024;

size_t bytes_for(const std::string& name) {
  return name.size() + 1 + sizeof(char*);
}

bool fit_one_command(const std::vector<std::string>& names) {
  size_t bytes = 0;
  for (const std::string& name : names) bytes += bytes_for(name);
  return bytes < kNamesBytes;
}

// Runs `program` (its path and first words) with as many of `names` a time as fit, and `last`
// behind them unless that is null. Without a shell, whose text could be 128 KiB long at most. 0, or
// the wait status of a run that failed.
int run_in_batches(const std::vector<const char*>& program, const std::vector<std::string>& names,
                   const char* last) {
  int result = 0;
  for (auto name = names.begin(); name != names.end();) {
    std::vector<const char*> argv = program;
    size_t bytes = 0;
    do {
      bytes += bytes_for(*name);
      argv.push_back((name++)->c_str());
    } while (name != names.end() && bytes + bytes_for(*name) < kNamesBytes);
    if (last != nullptr) argv.push_back(last);
    argv.push_back(nullptr);
    const int status = run_program(argv.data());
    if (status != 0) result = status;
  }
  return result;
}

// run_in_batches() of what is copied or moved into the directory `dst`, then chmod -R 777 of `dst`.
int bring_in_batches(const std::vector<const char*>& program, const std::vector<std::string>& names,
                     const char* dst) {
  if (is_dir_exist(dst) != 0) return -1;  // the last name by itself would become `dst`
  const int result = run_in_batches(program, names, dst);
  const char* const chmod[] = {kChmodTool, "-R", "777", dst, nullptr};
  const int given = run_program(chmod);
  return result != 0 ? result : given;
}

// `dst` is "" where there is none.
ShellText compose(ShellCommand which, const char* options, const char* src, const char* dst) {
  constexpr struct {
    FixedText program;
    bool removes;
    FixedText opening;  // null: the target keeps its mode
  } kRows[] = {
      {"cp", false, nullptr},               // kCopyFile
      {"cp -a", false, "; chmod -R 777"},   // kCopyDir
      {"cp -a", false, " ; chmod -R 777"},  // kCopyDir2
      {"mv", true, " ; chmod -R 777"},      // kMoveDir
      {"rm -rf", true, nullptr},            // kDeleteDir
  };
  const auto& row = kRows[static_cast<size_t>(which)];
  ShellText text(row.program);
  if (which == ShellCommand::kMoveDir) text.arg(options);
  row.removes ? text.removal(src) : text.pattern(src);
  if (which != ShellCommand::kDeleteDir) text.target(dst);
  if (row.opening.get() != nullptr) text.raw(row.opening).arg(dst);
  return text;
}

// compose() for a utility: a command that is too long ends the process.
ShellText compose_or_abort(ShellCommand which, const char* options, const char* src,
                           const char* dst) {
  ShellText command = compose(which, options, src, dst);
  if (command.can_be_given() && command.size() >= kCommandSize) abort();
  return command;
}

// The path at or below `target` that a copy of `source` would write through and must not, "" when
// there is none. Links in the source are copied as they are, and write through nothing.
std::string trap_for(const std::string& source, const std::string& target) {
  struct stat from;
  struct stat to;
  if (lstat(target.c_str(), &to) != 0 || lstat(source.c_str(), &from) != 0) return "";
  if (!S_ISREG(from.st_mode) && !S_ISDIR(from.st_mode)) return "";
  if (!S_ISREG(to.st_mode) && !S_ISDIR(to.st_mode)) return target;
  if (!S_ISDIR(from.st_mode) || !S_ISDIR(to.st_mode)) return "";
  ScopedDir stream(opendir(source.c_str()));
  if (!stream.valid()) return "";
  while (const dirent* entry = readdir(stream.get())) {
    const std::string name = entry->d_name;
    if (name == "." || name == "..") continue;
    const std::string trap = trap_for(source + "/" + name, target + "/" + name);
    if (!trap.empty()) return trap;
  }
  return "";
}

// trap_for() a copy or move of `entry` into the directory `dst`.
std::string trap_of(std::string entry, const char* dst) {
  while (entry.size() > 1 && entry.back() == '/') entry.pop_back();
  return trap_for(entry, std::string(dst) + "/" + get_file_name(entry.c_str()));
}

// Those of `names` that can go to `dst`; one error line for each of the others.
std::vector<std::string> clear_names(std::vector<std::string> names, const char* dst) {
  if (is_dir_exist(dst) != 0) return names;
  const auto is_led_astray = [dst](const std::string& name) {
    const std::string trap = trap_of(name, dst);
    if (trap.empty()) return false;
    LOGE_AS("clear_names", "a link or no file is in the way of %s, %s stays", trap.c_str(),
            name.c_str());
    return true;
  };
  names.erase(std::remove_if(names.begin(), names.end(), is_led_astray), names.end());
  return names;
}

// The names that `src` stands for.
std::vector<std::string> names_of(const char* src) {
  std::vector<std::string> names = pattern_entries(src);
  if (names.empty()) names.push_back(src);
  return names;
}

// Whether all of `src` can go to `dst`; false after one error line for each that cannot.
bool is_clear(const char* src, const char* dst) {
  const std::vector<std::string> names = names_of(src);
  return clear_names(names, dst).size() == names.size();
}

// False, after one error line, when a copy of `src` would leave too little room.
bool has_room(const char* src, const char* dst) {
  int64_t needed = 0;
  int64_t available = 0;
  if (copy_has_room(src, dst, &needed, &available)) return true;
  LOGE("%s", no_room_text("copy", src, dst, needed, available).c_str());
  return false;
}

// Runs the command of move_dir() and logs its result. A name that does not fit a command stays.
int run_move(const char* src, const char* dst, const char* options) {
  if (!command_fits(ShellCommand::kMoveDir, src, dst)) return -1;
  const int result = run_shell(compose(ShellCommand::kMoveDir, options, src, dst));
  LOGD_AS("move_dir", "%s -> %s, ret=%d(%d(%s)).", src, dst, result, errno, strerror(errno));
  return result;
}

// The entries of a pattern, oldest run first.
std::vector<std::string> ordered_entries(const char* src) {
  std::set<std::pair<int, std::string>> by_number;
  for (const std::string& path : pattern_entries(src)) {
    by_number.emplace(atoi(get_file_name(path.c_str())), path);
  }
  std::vector<std::string> entries;
  for (const auto& [number, path] : by_number) entries.push_back(path);
  return entries;
}

// Does `each` with the entries of a pattern, oldest run first. -1 when one of them failed, or `src`
// is no pattern.
template <typename Each>
int for_entries(const char* src, Each each) {
  const std::vector<std::string> entries = ordered_entries(src);
  int result = entries.empty() ? -1 : 0;
  for (const std::string& entry : entries) {
    if (each(entry.c_str()) != 0) result = -1;
  }
  return result;
}

// Runs the command of move_dir() for a pattern. Names that are too many for one command follow in
// batches. When something is in the way of a name, that name stays and the others go in batches.
int run_pattern_move(const char* src, const char* dst, const char* options) {
  const std::vector<std::string> names = ordered_entries(src);
  std::vector<std::string> clear = clear_names(names, dst);
  int result = -1;
  if (clear.size() == names.size()) {
    result = run_move(src, dst, options);
    if (fit_one_command(names)) return result;
    const auto is_gone = [](const std::string& name) { return access(name.c_str(), F_OK) != 0; };
    clear.erase(std::remove_if(clear.begin(), clear.end(), is_gone), clear.end());
  }
  if (clear.empty()) return result;
  std::vector<const char*> program = {kMvTool};
  if (*options != '\0') program.push_back(options);
  const int batches = bring_in_batches(program, clear, dst);
  LOGD_AS("move_dir", "%zu names of %s -> %s, ret=%d.", clear.size(), src, dst, batches);
  return batches != 0 ? batches : result;
}

}  // namespace

bool command_fits(ShellCommand command, const char* src, const char* dst) {
  const ShellText text = compose(command, "", src, dst == nullptr ? "" : dst);
  return text.can_be_given() && text.size() < kCommandSize;
}

int copy_file(const char* src, const char* dst) {
  const ShellText command = compose_or_abort(ShellCommand::kCopyFile, "", src, dst);
  return is_clear(src, dst) && has_room(src, dst) ? run_shell(command) : -1;
}

int copy_dir(const char* src, const char* dst) {
  const ShellText command = compose_or_abort(ShellCommand::kCopyDir, "", src, dst);
  const ScopedGroupAccess until_copied(src, GroupAccess::kRead);
  if (!command.may_run() || !is_clear(src, dst) || !has_room(src, dst)) return -1;
  const std::vector<std::string> names = pattern_entries(src);
  const int result = run_shell(command);
  if (fit_one_command(names)) return result;
  return bring_in_batches({kCpTool, "-a"}, names, dst);
}

int copy_dir2(const char* src, const char* dst) {
  const ShellText command = compose_or_abort(ShellCommand::kCopyDir2, "", src, dst);
  if (!is_clear(src, dst)) return -1;
  const ScopedGroupAccess until_copied(src, GroupAccess::kRead);
  if (!has_room(src, dst)) return 0;
  char line[kFirstLineSize];
  bool said = false;
  const auto on_line = [](void* context, const char* text) {
    bool* first_said = static_cast<bool*>(context);
    if (!*first_said) {
      LOGD_AS("copy_dir2", "errno(%d:%s) out %s", errno, strerror(errno), text);
    }
    *first_said = true;
  };
  return run_shell_lines(command, kUnbounded, line, sizeof(line), on_line, &said);
}

int delete_dir(const char* pattern) {
  const ScopedGroupAccess until_deleted(pattern, GroupAccess::kRemove);
  const ShellText command = compose_or_abort(ShellCommand::kDeleteDir, "", pattern, "");
  if (!command.may_run()) return -1;
  const bool fits = fit_one_command(pattern_entries(pattern));
  const int result = run_shell(command);
  if (fits) return result;
  return run_in_batches({kRmTool, "-rf", "--"}, pattern_entries(pattern), nullptr);
}

int remove_tree(const char* path) {
  if (is_trap(directory_of(path).c_str())) {
    LOGE("a link is in the way of %s", path);
    return -1;
  }
  const char* const argv[] = {kRmTool, "-rf", "--", path, nullptr};
  return run_program(argv);
}

int move_dir(const char* src, const char* dst, const char* options) {
  if (dst == nullptr) {
    LOGD("dest is null");
    return -1;
  }
  if (options == nullptr) options = "";
  if (is_dir_exist(dst) != 0) mkdir_s(dst);
  const ShellText command = compose_or_abort(ShellCommand::kMoveDir, options, src, dst);
  std::string dir;
  const bool is_pattern = pattern_directory(src, &dir);
  if (!command.may_run() || (!is_pattern && !is_clear(src, dst))) return -1;
  LinkedMove move(src, dst);
  if (move.prepare() == MoveWay::kStays) {
    LOGE("%s", move.refusal(src, dst).c_str());
    if (!move.may_go_in_part()) return -1;
    // One big run does not keep all others.
    return for_entries(src, [&](const char* entry) {
      return command_fits(ShellCommand::kMoveDir, entry, dst) ? move_dir(entry, dst, options) : -1;
    });
  }
  const int result = is_pattern ? run_pattern_move(src, dst, options) : run_move(src, dst, options);
  return move.settle() ? result : -1;
}
