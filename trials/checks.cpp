#include "trials/checks.h"

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>

namespace fs = std::filesystem;

namespace {

constexpr uintmax_t kComparedBytes = 1 << 20;
constexpr const char* kRoots[] = {"/data", "/persist", "/cache", "/sys", "/d", "/tmp"};
// The daemon's trees, and the bench's own.
constexpr const char* kOwnTrees[] = {
    "/data/misc/zelkalog",   "/data/media/0/zelkalog",
    "/data/vendor/zelkalog", "/data/media/0/Android/data/.harrowmoss",
    "/data/media/0/report",  // the destination of the trials' bundles
    "/persist/harrowmoss",   "/cache/boot_fail.log",
    "/data/property",
};

bool begins_with(const std::string& text, const std::string& prefix) {
  return text.compare(0, prefix.size(), prefix) == 0;
}

bool is_own(const std::string& path) {
  return std::any_of(std::begin(kOwnTrees), std::end(kOwnTrees), [&](const std::string& tree) {
    return path == tree || begins_with(path, tree + "/");
  });
}

std::string description(const fs::path& path) {
  struct stat info;
  if (lstat(path.c_str(), &info) != 0) return "gone";
  std::string text = std::to_string(info.st_mode) + " " + std::to_string(info.st_uid) + " " +
                     std::to_string(info.st_gid);
  if (!S_ISREG(info.st_mode)) return text;
  text += " " + std::to_string(info.st_size) + " ";
  return static_cast<uintmax_t>(info.st_size) > kComparedBytes ? text : text + read_file(path);
}

}  // namespace

std::map<std::string, std::string> surroundings(const Phone& phone) {
  std::map<std::string, std::string> found;
  const size_t prefix = phone.inside("").size();
  for (const char* root : kRoots) {
    std::error_code error;
    auto at = fs::recursive_directory_iterator(phone.inside(root), error);
    for (; at != fs::recursive_directory_iterator(); at.increment(error)) {
      const std::string path = at->path().string().substr(prefix);
      if (is_own(path)) {
        at.disable_recursion_pending();
      } else {
        found[path] = description(at->path());
      }
    }
  }
  return found;
}

std::vector<std::string> differences(const std::map<std::string, std::string>& before,
                                     const std::map<std::string, std::string>& after) {
  std::vector<std::string> paths;
  for (const auto& [path, text] : before) {
    const auto now = after.find(path);
    if (now == after.end() || now->second != text) paths.push_back(path);
  }
  for (const auto& [path, text] : after) {
    if (before.count(path) == 0) paths.push_back(path);
  }
  return paths;
}

Resources resources(const Phone& phone) {
  Resources held;
  const pid_t pid = phone.daemon_pid();
  const std::string proc = "/proc/" + std::to_string(phone.outer_pid(pid));
  const std::string memory = read_file(proc + "/smaps_rollup");
  held.pss_kib = number_behind(memory, "\nPss:");
  held.private_dirty_kib = number_behind(memory, "\nPrivate_Dirty:");
  held.threads = static_cast<int>(number_behind(read_file(proc + "/status"), "\nThreads:"));
  for (const std::string& target : descriptors(phone, pid))
    held.descriptors.push_back(target[0] == '/' ? target : target.substr(0, target.find('[')));
  std::sort(held.descriptors.begin(), held.descriptors.end());
  return held;
}

Resources idle_resources(const Phone& phone) {
  constexpr int kAgreeing = 20;
  Resources held = resources(phone);
  int agreed = 0;
  eventually([&] {
    const Resources again = resources(phone);
    agreed = again.descriptors == held.descriptors ? agreed + 1 : 0;
    held = again;
    return agreed == kAgreeing;
  });
  return held;
}

std::vector<std::string> running(const Phone& phone) {
  std::vector<std::string> names;
  for (const PhoneProcess& process : phone.processes()) {
    if (process.comm != "fault-injector") names.push_back(process.comm);
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::string joined(const std::vector<std::string>& texts) {
  std::string line;
  for (const std::string& text : texts) line += (line.empty() ? "" : " ") + text;
  return line;
}
