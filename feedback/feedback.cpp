#include "feedback/feedback.h"

#include <errno.h>
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
#include "model/destination.h"
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

void add_identity(const std::string& path, std::vector<FileIdentity>* ids) {
  struct stat info;
  if (stat(path.c_str(), &info) == 0) ids->emplace_back(info.st_dev, info.st_ino);
}

// Where shared storage keeps `dir`: through FUSE a file has another number than there.
std::string place_on_data(std::string_view dir) {
  constexpr std::string_view kShared = "/sdcard/";
  if (dir.substr(0, kShared.size()) != kShared) return std::string(dir);
  return "/data/media/0/" + std::string(dir.substr(kShared.size()));
}

}  // namespace

const char* destination_fault(const char* path, const std::vector<std::string_view>& sources,
                              bool fits) {
  if (path == nullptr) path = "";
  DestinationFacts facts = {sources, {}, {}, is_trap(path), fits};
  for (const std::string_view source : sources) {
    add_identity(std::string(source), &facts.source_ids);
    add_identity(place_on_data(source), &facts.source_ids);
  }
  const std::string_view whole = path;
  for (size_t end = whole.size(); end != 0 && end != std::string_view::npos;
       end = whole.find_last_of('/', end - 1)) {
    add_identity(std::string(whole.substr(0, end)), &facts.destination_ids);
  }
  return judge_destination(path, facts);
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
