#include "client/support/files.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <string_view>

std::vector<std::string> list_directory(const std::string& directory) {
  std::vector<std::string> names;
  DIR* dir = opendir(directory.c_str());
  if (dir == nullptr) return names;
  while (const dirent* entry = readdir(dir)) {
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") names.emplace_back(name);
  }
  closedir(dir);
  std::sort(names.begin(), names.end());
  return names;
}

void walk_files(const std::string& root,
                const std::function<void(const std::string&, int64_t)>& visit) {
  std::vector<std::string> pending = {""};  // directories, as paths below `root`
  while (!pending.empty()) {
    const std::string below = pending.back();
    pending.pop_back();
    for (const std::string& name : list_directory(root + "/" + below)) {
      const std::string path = below.empty() ? name : below + "/" + name;
      struct stat info;
      if (lstat((root + "/" + path).c_str(), &info) != 0) continue;
      if (S_ISDIR(info.st_mode)) pending.push_back(path);
      if (S_ISREG(info.st_mode)) visit(path, info.st_size);
    }
  }
}

std::string read_start(const std::string& path, size_t limit) {
  // O_NONBLOCK: a FIFO may have the name.
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
  if (fd == -1) return "";
  std::string bytes(limit, '\0');
  size_t done = 0;
  while (done < limit) {
    const ssize_t got = read(fd, &bytes[done], limit - done);
    if (got == -1 && errno == EINTR) continue;
    if (got <= 0) break;
    done += static_cast<size_t>(got);
  }
  close(fd);
  bytes.resize(done);
  return bytes;
}

bool is_directory(const std::string& path) {
  struct stat info;
  return stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

bool is_link(const std::string& path) {
  struct stat info;
  return lstat(path.c_str(), &info) == 0 && S_ISLNK(info.st_mode);
}

std::string resolved(const std::string& path) {
  char real[PATH_MAX];
  return realpath(path.c_str(), real) == nullptr ? "" : real;
}

std::string without_slashes(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

bool make_directories(const std::string& path) {
  for (size_t slash = path.find('/', 1);; slash = path.find('/', slash + 1)) {
    const std::string prefix = path.substr(0, slash);
    if (mkdir(prefix.c_str(), 0777) != 0 && !is_directory(prefix)) {
      if (errno == EEXIST) errno = ENOTDIR;
      return false;
    }
    if (slash == std::string::npos) return true;
  }
}

std::string size_text(int64_t bytes) {
  constexpr const char* kUnits[] = {"B", "KiB", "MiB", "GiB", "TiB"};
  double value = static_cast<double>(bytes);
  size_t unit = 0;
  for (; value >= 1024 && unit + 1 < std::size(kUnits); unit++) value /= 1024;
  char text[32];
  snprintf(text, sizeof text, unit == 0 ? "%.0f %s" : "%.1f %s", value, kUnits[unit]);
  return text;
}
