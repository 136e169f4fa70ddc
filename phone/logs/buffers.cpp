#include "phone/logs/buffers.h"

#include <fcntl.h>
#include <sys/stat.h>

#include "phone/util.h"
#include "platform/linux/log_record.h"

std::string log_buffer_path(const std::string& buffer) {
  return std::string(kLogDirectory) + "/" + buffer;
}

bool create_log_buffers() {
  for (const char* buffer : kLogBuffers) {
    const std::string path = log_buffer_path(buffer);
    Fd fd(open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666));
    if (!fd.ok() || fchmod(fd.get(), 0666) != 0) return false;
  }
  return true;
}

off_t log_buffer_bytes(const std::string& buffer) {
  struct stat st;
  if (stat(log_buffer_path(buffer).c_str(), &st) != 0) return 0;
  return std::min<off_t>(st.st_blocks * 512, st.st_size);
}

bool punch_log_buffer(const std::string& buffer, off_t bytes) {
  Fd fd(open(log_buffer_path(buffer).c_str(), O_RDWR | O_CLOEXEC));
  struct stat st;
  if (!fd.ok() || fstat(fd.get(), &st) != 0) return false;
  const off_t first = lseek(fd.get(), 0, SEEK_DATA);
  if (first < 0) return errno == ENXIO;  // only a hole
  const off_t end = bytes < 0 ? st.st_size : std::min(first + bytes, st.st_size);
  if (end == first) return true;
  return fallocate(fd.get(), FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, first, end - first) == 0;
}

void cut_log_buffers() {
  for (const char* buffer : kLogBuffers) {
    const off_t bytes = log_buffer_bytes(buffer);
    if (bytes > kLogBufferLimit) punch_log_buffer(buffer, bytes - kLogBufferLimit / 2);
  }
}
