#include "client/support/volume.h"

#include <sys/stat.h>

#include "client/support/files.h"
#include "model/tree_size.h"

std::vector<VolumeReading> read_volumes(const Environment& env) {
  std::vector<VolumeReading> volumes;
  for (const LoggingThreshold& row : kLoggingThresholds) {
    VolumeSpace space;
    VolumeReading volume = {row.path, row.bytes + 1, 0, env.space(env.root + row.path, &space)};
    if (volume.known) volume.available = space.available;
    volumes.push_back(volume);
  }
  return volumes;
}

std::string space_text(const std::string& path, int64_t wanted, int64_t available) {
  return path + ": " + std::to_string(wanted) + " bytes wanted, " + std::to_string(available) +
         " free";
}

std::string space_text(const VolumeReading& volume) {
  if (volume.known) return space_text(volume.path, volume.wanted, volume.available);
  return volume.path + ": " + std::to_string(volume.wanted) + " bytes wanted, free bytes unknown";
}

std::string existing_parent(std::string path) {
  struct stat info;
  while (path.size() > 1 && stat(path.c_str(), &info) != 0) {
    const size_t slash = path.find_last_of('/');
    path.resize(slash == std::string::npos ? 0 : slash == 0 ? 1 : slash);
  }
  return path.empty() ? "." : path;
}

int64_t quota_bytes(const std::string& path) {
  int64_t bytes = 0;
  tree_size(path, nullptr, &bytes);
  return bytes;
}

int64_t round_up(int64_t bytes, int64_t block) {
  return (bytes + block - 1) / block * block;
}

int64_t copy_bytes(const std::string& path, int64_t block) {
  struct stat info;
  if (lstat(path.c_str(), &info) != 0) return 0;
  if (!S_ISDIR(info.st_mode)) return round_up(S_ISREG(info.st_mode) ? info.st_size : 1, block);
  int64_t total = block;
  for (const std::string& name : list_directory(path))
    total += copy_bytes(path + "/" + name, block);
  return total;
}
