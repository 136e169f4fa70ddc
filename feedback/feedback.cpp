#include "feedback/feedback.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <string_view>

#include "base/beneath.h"
#include "base/process.h"
#include "base/text.h"
#include "debuglog/workers.h"
#include "feedback/report.h"
#include "selflog/log.h"
#include "storage/shell.h"
#include "storage/utils.h"

namespace {

constexpr char kLogSource[] = "commands";
constexpr int kPropertyPollMs = 100;
constexpr int kPropertyPolls = 20;

// The property worker's body.
[[noreturn]] void write_property_files(const char* dir, const char* suffix) {
  LOGD_AS("copy_system_propertie", "in child %d.", getpid());
  char path[4096] = {};
  if (copy_or_abort(path, dir) == 0 || path[strlen(path) - 1] != '/') append_or_abort(path, "/");
  run_tool(ShellText("getprop >").target(std::string(path) + "system" + suffix + ".prop"),
           kOutputBytes);
  char name[64];
  format_cut(name, "others%s.prop", suffix);
  write_info(path, name);
  write_build_state(path, name);
  write_cmd_output(path, name, "uptime");
  write_cmd_output(path, name, "df -h");
  end_process(0);
}

bool has_dot_component(const char* path) {
  for (const char* p = strchr(path, '/'); p != nullptr; p = strchr(p + 1, '/')) {
    const size_t length = strcspn(p + 1, "/");
    if ((length == 1 && p[1] == '.') || (length == 2 && p[1] == '.' && p[2] == '.')) return true;
  }
  return false;
}

int count_components(const char* path) {
  int count = 0;
  for (const char* p = path; *p != '\0'; p++) {
    if (*p != '/' && (p == path || p[-1] == '/')) count++;
  }
  return count;
}

// Compares component by component: repeated slashes do not count.
bool is_same_or_below(const char* path, const char* dir) {
  for (;;) {
    path += strspn(path, "/");
    dir += strspn(dir, "/");
    const size_t length = strcspn(dir, "/");
    if (length == 0) return true;
    if (strcspn(path, "/") != length || strncmp(path, dir, length) != 0) return false;
    path += length;
    dir += length;
  }
}

// Whether `path`, or a directory that it lies in, is `dir` itself under another name: shared
// storage has several.
bool is_same_or_below_by_inode(const char* path, const char* dir) {
  struct stat wanted;
  if (stat(dir, &wanted) != 0) return false;
  std::string prefix = path;
  for (size_t end = prefix.size(); end != 0 && end != std::string::npos;) {
    prefix.resize(end);
    struct stat info;
    if (stat(prefix.c_str(), &info) == 0 && info.st_dev == wanted.st_dev &&
        info.st_ino == wanted.st_ino) {
      return true;
    }
    end = prefix.find_last_of('/');
  }
  return false;
}

// Where shared storage keeps `dir`: through FUSE a file has another number than there.
std::string place_on_data(const char* dir) {
  constexpr std::string_view kShared = "/sdcard/";
  const std::string_view path = dir;
  if (path.substr(0, kShared.size()) != kShared) return dir;
  return "/data/media/0/" + std::string(path.substr(kShared.size()));
}

bool has_control_byte(const char* path) {
  for (const char* p = path; *p != '\0'; p++) {
    if (static_cast<unsigned char>(*p) < 0x20 || *p == 0x7F) return true;
  }
  return false;
}

}  // namespace

const char* destination_fault(const char* path, const char* const* sources, size_t count,
                              bool (*fits)(const char* path)) {
  if (path == nullptr || path[0] != '/') return "not absolute";
  if (count_components(path) < 2) return "too high in the tree";
  if (has_dot_component(path)) return "has a . or .. component";
  if (has_control_byte(path)) return "has a control byte";
  for (size_t i = 0; i < count; i++) {
    if (is_same_or_below(path, sources[i]) || is_same_or_below_by_inode(path, sources[i]) ||
        is_same_or_below_by_inode(path, place_on_data(sources[i]).c_str())) {
      return "inside of what is copied";
    }
  }
  if (is_trap(path)) return "a link or no directory is in the way";
  return fits(path) ? nullptr : "too long";
}

int get_feedback_log(int mask, const char* dir) {
  LOGD("function invoked");
  if (is_dir_exist(kGeneralDir) != 0) creat_dir(kGeneralDir);
  int ret = 0;
  for (const FeedbackGetter& getter : kFeedbackGetters) {
    if ((getter.bit & mask) == 0) continue;
    ret = getter.get(dir);
    if (ret < 0) {
      LOGE("%s ret %d", getter.name, ret);
      break;
    }
  }
  copy_system_propertie(dir, "");
  return ret;
}

int copy_system_propertie(const char* dir, const char* suffix) {
  const pid_t pid = fork_process(Group::kNew);
  if (pid == 0) write_property_files(dir, suffix);
  if (pid < 1) {
    LOGE("failed to fork child. err:%d(%s).", errno, strerror(errno));
    return -1;
  }
  const int polls = await_request_child(__func__, pid, kPropertyPollMs, kPropertyPolls);
  LOGD("wait child %d to finish wastes %f secs", pid, static_cast<double>(polls) / 10.0);
  return 0;
}
