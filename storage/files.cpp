#include <cutils/properties.h>
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <string>

#include "base/beneath.h"
#include "base/scoped.h"
#include "base/text.h"
#include "model/properties.h"
#include "selflog/log.h"
#include "storage/utils.h"

namespace {

constexpr char kLogSource[] = "utils";
constexpr size_t kLatestFileSize = 4096;

// Whether storage is ready for `path`; logs the reasons.
bool storage_usable(const char* path) {
  char mounted[PROPERTY_VALUE_MAX] = {};
  property_get(kMountedProp, mounted, "0");
  bool sdcard_usable = mounted[0] != '0';
  if (starts_with(path, kSdcard) && access(kSdcard, F_OK) != 0) sdcard_usable = false;
  if (checkDirPrefixAccess(path, kSdcard) == 1) {
    LOGD_AS("creat_dir", "sdcard access W ok. sdcard_prop = %s", mounted);
    sdcard_usable = true;
  }
  const bool data_usable =
      checkDirPrefixAccess(path, kData) == 1 || checkDirPrefixAccess(path, kWorkingDir) == 1;
  if (data_usable) {
    LOGD_AS("creat_dir", "data access W ok. sdcard_prop = %s", mounted);
  } else if (!sdcard_usable) {
    LOGD_AS("creat_dir", "sdcard cannot access. sdcard_prop = %s", mounted);
    LOGW_AS("creat_dir",
            "%s is not made: vold.mounted tells of no shared storage, and %s is not writable", path,
            starts_with(path, kSdcard) ? kSdcard : kData);
    return false;
  }
  return true;
}

// Makes one directory for the app to use.
bool make_one(const char* path) {
  const MkdirStep failed = make_shared_directory(path);
  if (failed == MkdirStep::kChown || failed == MkdirStep::kChmod) {
    LOGE_AS("creat_dir", "%s fail! %s", failed == MkdirStep::kChown ? "chown" : "chmod",
            strerror(errno));
  }
  return failed == MkdirStep::kDone;
}

}  // namespace

int is_dir_exist(const char* path) {
  return path != nullptr && ScopedDir(opendir(path)).valid() ? 0 : -1;
}

int creat_file(const char* path) {
  ScopedFd fd(open_file_beneath(path, O_WRONLY | O_CREAT | O_TRUNC, 0666));
  if (!fd.valid()) {
    LOGE("%s filed ! %s\n", path, strerror(errno));
    return -1;
  }
  if (fchmod(fd.get(), 0666) != 0) {  // open() applied the umask
    LOGE("fchmod on %s failed: %s\n", path, strerror(errno));
    return -1;
  }
  if (fchown(fd.get(), kSdcardOwner, kSdcardOwner) != 0) {
    LOGE("fchown on %s failed: %s\n", path, strerror(errno));
    return -1;
  }
  return 0;
}

const char* get_file_name(const char* path) {
  if (path == nullptr) return nullptr;
  const char* name = path;
  for (const char* p = path; *p != '\0'; p++) {
    if (*p == '/' || *p == '\\') name = p + 1;
  }
  return name;
}

int checkDirPrefixAccess(const char* path, const char* prefix) {
  if (!starts_with(path, prefix) || is_dir_exist(prefix) != 0) return 0;
  if (access(prefix, R_OK) == 0) LOGD("%s access R ok.", prefix);
  if (access(prefix, W_OK) != 0) return 0;
  LOGD("%s access W ok.", prefix);
  return 1;
}

int creat_dir(const char* path) {
  if (path == nullptr) return -1;
  if (is_trap(path)) {
    LOGE("a link or no directory is in the way of %s", path);
    return -1;
  }
  if (is_dir_exist(path) == 0) return 0;
  char buffer[256];
  const size_t length = copy_or_abort(buffer, path);
  if (length == 0 || buffer[length - 1] != '/') append_or_abort(buffer, "/");
  if (!storage_usable(path)) return -1;
  for (char* slash = strchr(buffer + 1, '/'); slash != nullptr; slash = strchr(slash + 1, '/')) {
    *slash = '\0';
    // "/sdcard" is never made: it is the platform's to mount.
    const bool missing = strcmp(buffer, kSdcard) != 0 && access(buffer, F_OK) != 0;
    if (missing && !make_one(buffer)) return -1;
    *slash = '/';
  }
  return 0;
}

int mkdir_s(const char* path) {
  if (path == nullptr) return 0;
  if (creat_dir(path) == 0) return 1;
  if (starts_with(path, kStoreDir)) {
    const std::string other = std::string(kMediaStoreDir) + (path + strlen(kStoreDir));
    if (creat_dir(other.c_str()) == 0) return 1;
  }
  LOGW("failed to mkdir %s: %d(%s)", path, errno, strerror(errno));
  return 0;
}

char* getLatestFile(const char* dir, const char* needle) {
  ScopedDir stream(opendir(dir));
  if (!stream.valid()) {
    LOGE("cannot open directory: %s\n", dir);
    return nullptr;
  }
  char* latest = new char[kLatestFileSize]();
  time_t latest_time = 0;
  while (const dirent* entry = readdir(stream.get())) {
    const char* name = entry->d_name;
    if (strcmp(name, ".") == 0 || strcmp(name, "..") == 0) continue;
    if (strstr(name, needle) == nullptr) continue;
    char path[kLatestFileSize];
    format_cut(path, "%s%s", dir, name);
    struct stat info;
    if (stat(path, &info) != 0) {
      LOGE("stat %s file error: %s\n", path, strerror(errno));
    } else if (info.st_mtime > latest_time) {
      latest_time = info.st_mtime;
      memcpy(latest, path, kLatestFileSize);
    }
  }
  return latest;
}
