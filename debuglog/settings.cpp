#include "debuglog/settings.h"

#include <cutils/properties.h>
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <string>

#include "base/beneath.h"
#include "base/scoped.h"
#include "base/text.h"
#include "selflog/log.h"
#include "selflog/props.h"
#include "storage/copied.h"
#include "storage/utils.h"

namespace {

constexpr char kLogSource[] = "commands";
constexpr char kPersistDir[] = "/persist/harrowmoss/";
constexpr size_t kPathSize = 4096;
constexpr char kSystemSizeKey[] = "persist.sys.system.size";  // provisioned by the factory
constexpr char kStateKey[] = "persist.sys.state";
constexpr char kPowerOffDir[] = "/data/misc/zelkalog/poweroffcharge";

// Makes kPersistDir for root alone. False after a log line.
bool make_persist_dir() {
  const auto failed = [](const char* call) {
    LOGE_AS("setPersistProperty", "%s %s failed. %s", call, kPersistDir, strerror(errno));
    return false;
  };
  LOGD_AS("setPersistProperty", "The dir: %s is not existed, create it.", kPersistDir);
  if (mkdir(kPersistDir, 0700) != 0) return failed("mkdir");
  if (chown(kPersistDir, 0, 0) != 0) return failed("chown");
  if (chmod(kPersistDir, 0700) != 0) return failed("chmod");  // mkdir() applied the umask
  return true;
}

// The parts of a fingerprint, each with the separator after it.
struct FingerprintPart {
  const char* key;
  const char* separator;
};
constexpr FingerprintPart kFingerprintParts[] = {
    {"ro.product.brand", "/"},  {"ro.product.name", "/"},
    {"ro.product.device", ":"}, {"ro.build.version.release", "/"},
    {"ro.build.id", "/"},       {"ro.build.version.incremental", ":"},
    {"ro.build.type", "/"},     {"ro.build.tags", ""},
};

bool has_hidden(const char* dir) {
  ScopedDir stream(opendir(dir));
  while (const dirent* entry = stream.valid() ? readdir(stream.get()) : nullptr) {
    const char* name = entry->d_name;
    if (name[0] == '.' && strcmp(name, ".") != 0 && strcmp(name, "..") != 0) return true;
  }
  return false;
}

// Moves one directory of power-off logs. It stays where it is when there is no room, when other
// logs have one of its names (until a stop has moved those), and when the copy is incomplete.
void move_poweroff_logs(const char* source) {
  if (is_poweroffcharge() || is_dir_exist(source) != 0 || creat_dir(kPowerOffDir) != 0) return;
  const auto stays = [&](const char* why) {
    LOGE_AS("copyPoweroffchargelog", "%s stays: %s", source, why);
  };
  const std::string content = std::string(source) + "/*";
  if (is_taken(content.c_str(), kPowerOffDir)) {
    stays("other logs have its names in /data/misc/zelkalog/poweroffcharge");
    return;
  }
  if (copy_dir(content.c_str(), kPowerOffDir) == -1) return;  // not begun
  if (!is_copied(content.c_str(), kPowerOffDir)) return;
  if (has_hidden(source)) {
    stays("it holds hidden files, which are not copied");
    delete_dir(content.c_str());
  } else {
    delete_dir(source);
  }
  LOGE_AS("copyPoweroffchargelog", "cp poweroffchargelog to %s", kPowerOffDir);
}

}  // namespace

int getPersistProperty(const char* key, char* buf) {
  if (access(kPersistDir, F_OK) != 0) {
    LOGW("access %s failed. %s", kPersistDir, strerror(errno));
    return -1;
  }
  char path[kPathSize];
  format_cut(path, "%s%s", kPersistDir, key);
  ScopedFd fd(open(path, O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
  if (!fd.valid()) {
    LOGW("open %s failed. %s", path, strerror(errno));
    return -1;
  }
  if (read(fd.get(), buf, PROPERTY_VALUE_MAX - 1) < 0) {
    LOGE("reading data from %s failed. %s", path, strerror(errno));
    return -1;
  }
  return 0;
}

int setPersistProperty(const char* key, const char* value) {
  if (access(kPersistDir, F_OK) != 0 && !make_persist_dir()) return -1;
  char path[kPathSize];
  format_cut(path, "%s%s", kPersistDir, key);
  ScopedFd fd(open_file_beneath(path, O_WRONLY | O_CREAT | O_TRUNC, 0600));
  if (!fd.valid()) {
    LOGE("open/create %s failed. %s", path, strerror(errno));
    return -1;
  }
  if (fchown(fd.get(), 0, 0) != 0) {
    LOGE("chown %s failed. %s", path, strerror(errno));
    return -1;
  }
  if (fchmod(fd.get(), 0600) != 0) {
    LOGE("chmod %s failed. %s", path, strerror(errno));
    return -1;
  }
  (void)!write(fd.get(), value, strlen(value));
  fsync(fd.get());  // must survive a power loss right after
  return 0;
}

int getBuildState() {
  LOGD("function invoked");
  char root[PROPERTY_VALUE_MAX] = {};
  property_get("plenx_is_root", root, "");
  if (root[0] != '\0') return atoi(root);
  char stored[PROPERTY_VALUE_MAX] = {};
  getPersistProperty(kSystemSizeKey, stored);
  char current[PROPERTY_VALUE_MAX];
  format_cut(current, "%lld", static_cast<long long>(get_mount_used_size("/system")));
  if (strcmp(stored, current) == 0) return 0;
  setPersistProperty(kStateKey, "IsRoot:Y");
  return 1;
}

int getBuildID(char* buf) {
  const int length = property_get("ro.build.fingerprint", buf, "");
  if (length > 0) return length;
  std::string composed;
  for (const FingerprintPart& part : kFingerprintParts) {
    composed += get_string_prop(part.key, "") + part.separator;
  }
  composed.resize(std::min<size_t>(composed.size(), PROPERTY_VALUE_MAX - 1));
  memcpy(buf, composed.c_str(), composed.size() + 1);
  return static_cast<int>(composed.size());
}

void preProcess() {
  LOGD("function invoked");
  LOGD_AS("copyPoweroffchargelog", "function invoked, !is_poweroffcharge : %d",
          !is_poweroffcharge());
  move_poweroff_logs("/cache/zelkalog");
  move_poweroff_logs("/persist/zelkalog");
}

int64_t get_mount_used_size(const char* mount) {
  struct statfs info = {};
  if (statfs(mount, &info) == 0 && info.f_blocks != 0) {
    return static_cast<int64_t>(info.f_blocks - info.f_bfree) * static_cast<int64_t>(info.f_bsize);
  }
  LOGE("get used size of filesystem:%s failed. %s", mount, strerror(errno));
  return 0;
}
