#include "phone/boot/keep_logs.h"

#include <filesystem>

#include "phone/util.h"

namespace fs = std::filesystem;

// Regular files only: opening a FIFO would block.
int copy_files(const std::string& from, const std::string& to) {
  int copied = 0;
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(from, error)) {
    const std::string target = to + "/" + entry.path().filename().string();
    copied += entry.symlink_status().type() == fs::file_type::regular && make_parents(target) &&
              copy_file(entry.path().string(), target);
  }
  return copied;
}

bool keep_logs(const std::string& dev, const std::string& data, const std::string& directory) {
  std::error_code error;
  fs::remove_all(directory, error);
  const int copied =
      copy_files(dev + "/bench", directory + "/bench") +
      copy_files(dev + "/log", directory + "/log") +
      copy_files(data + "/misc/zelkalog/.logger", directory + "/self-log") +
      copy_files(data + "/media/0/zelkalog/.logger", directory + "/self-log-of-the-store");
  return copied > 0;
}
