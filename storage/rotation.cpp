#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

#include "base/text.h"
#include "selflog/log.h"
#include "storage/shell.h"
#include "storage/utils.h"

namespace {

constexpr char kLogSource[] = "utils";
constexpr const char* kRotated[] = {"qsee_log.txt", "tzbsp.txt", "qrtr_last", "qrtr_last.txt"};
constexpr size_t kPathSize = 4096;
constexpr size_t kCommandSize = 500;

bool is_rotated(const char* file_name) {
  for (const char* name : kRotated) {
    if (strcmp(name, file_name) == 0) return true;
  }
  return false;
}

// The size that counts. The router log's writer keeps its offset when the file is emptied, so its
// file is sparse from then on and st_size would ask for a rotation at every look.
unsigned long counted_size(const char* file_name, const struct stat& info) {
  const auto size = static_cast<unsigned long>(info.st_size);
  const auto allocated = static_cast<unsigned long>(info.st_blocks) * 512;  // st_blocks' unit
  return starts_with(file_name, "qrtr_last") && allocated < size ? allocated : size;
}

// False when it was not run: a command that does not fit would name other files if it was cut.
bool run_step(const shell_text& command) {
  if (command.size() >= kCommandSize) {
    LOG_AS(ANDROID_LOG_ERROR, "rotateFpLogs", "rotateFpLogs cmd too long:%s\n", command.c_str());
    return false;
  }
  LOG_AS(ANDROID_LOG_ERROR, "rotateFpLogs", "run rotateFpLogs cmd:%s\n", command.c_str());
  return run_shell(command) != -1;
}

}  // namespace

void rotateFpLogs(const char* dir, const char* file_name, unsigned long limit, int count) {
  if (!is_rotated(file_name)) {
    LOGE("error support fp log only. fileName:%s\n", file_name);
    return;
  }
  const size_t dir_length = strlen(dir);
  const char* separator = dir_length == 0 || dir[dir_length - 1] == '/' ? "" : "/";
  char path[kPathSize] = {};
  format_cut(path, "%s%s%s", dir, separator, file_name);
  struct stat info;
  if (lstat(path, &info) != 0 || !S_ISREG(info.st_mode)) return;
  if (counted_size(file_name, info) < limit) return;
  LOGE("need to rotateFpLogs, filePath:%s\n", path);
  for (int i = count; i >= 1; i--) {
    char from[kPathSize + 12];
    char to[kPathSize + 12];
    format_cut(to, "%s.%d", path, i);
    if (i > 1) {
      format_cut(from, "%s.%d", path, i - 1);
      run_step(shell_text("mv").target(from).target(to));
    } else if (run_step(shell_text("cp").target(path).target(to))) {
      run_step(shell_text("echo >").target(path));
    }
  }
}
