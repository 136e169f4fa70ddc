#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/process.h"
#include "base/text.h"
#include "selflog/log.h"
#include "storage/measure.h"
#include "storage/shell.h"
#include "storage/utils.h"

namespace {

constexpr char kLogSource[] = "utils";
constexpr const char* kRotated[] = {"qsee_log.txt", "tzbsp.txt", "qrtr_last", "qrtr_last.txt"};
constexpr size_t kPathSize = 4096;
constexpr size_t kCommandSize = 500;
constexpr int64_t kRetryMs = 60 * 1000;  // after a copy that failed

// Of this thread's rotations (monotonic ms); 0: none has failed.
thread_local int64_t t_not_before = 0;

bool is_rotated(const char* file_name) {
  for (const char* name : kRotated) {
    if (strcmp(name, file_name) == 0) return true;
  }
  return false;
}

// The size that counts. The router log's writer keeps its offset when the file is emptied, so its
// file is sparse from then on, and its st_size would cause a rotation every time.
unsigned long counted_size(const char* file_name, const struct stat& info) {
  const auto size = static_cast<unsigned long>(info.st_size);
  const auto allocated = static_cast<unsigned long>(info.st_blocks) * 512;  // st_blocks' unit
  return starts_with(file_name, "qrtr_last") && allocated < size ? allocated : size;
}

// The wait status; -1 when it was not run: a command that does not fit would name other files if it
// was cut.
int run_step(const ShellText& command) {
  if (command.size() >= kCommandSize) {
    LOGE_AS("rotateFpLogs", "rotateFpLogs cmd too long:%s\n", command.c_str());
    return -1;
  }
  LOGE_AS("rotateFpLogs", "run rotateFpLogs cmd:%s\n", command.c_str());
  return run_shell(command);
}

struct GenerationPath {
  char text[kPathSize + 12];
  GenerationPath(const char* path, int number) { format_cut(text, "%s.%d", path, number); }
};

// Copies the live file to generation 1. On failure nothing of the copy is left.
bool copy_live_file(const char* path, const char* copy) {
  int64_t needed = 0;
  int64_t available = 0;
  if (!copy_has_room(path, copy, &needed, &available)) return false;
  const int status = run_step(ShellText("cp").target(path).target(copy));
  if (status > 0) unlink(copy);
  return status == 0;
}

// Gives the generations from 2 on their old numbers again. Without it, retries would shift them all
// out.
void shift_back(const char* path, int count) {
  for (int i = 2; i <= count; i++) {
    renameat2(AT_FDCWD, GenerationPath(path, i).text, AT_FDCWD, GenerationPath(path, i - 1).text,
              RENAME_NOREPLACE);
  }
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
  if (counted_size(file_name, info) < limit || monotonic_ms() < t_not_before) return;
  LOGE("need to rotateFpLogs, filePath:%s\n", path);
  if (count < 1) return;
  for (int i = count; i > 1; i--) {
    run_step(ShellText("mv")
                 .target(GenerationPath(path, i - 1).text)
                 .target(GenerationPath(path, i).text));
  }
  if (copy_live_file(path, GenerationPath(path, 1).text)) {
    run_step(ShellText("echo >").target(path));
    return;
  }
  shift_back(path, count);
  t_not_before = monotonic_ms() + kRetryMs;
  LOGE("cannot copy %s, it is not emptied; the next try is in %d s", path,
       static_cast<int>(kRetryMs / 1000));
}
