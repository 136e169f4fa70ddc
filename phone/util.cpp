#include "phone/util.h"

#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/sendfile.h>
#include <sys/stat.h>

#include <charconv>

std::string read_file(const std::string& path) {
  Fd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  std::string text;
  if (!fd.ok()) return text;
  char block[16384];
  ssize_t n;
  while ((n = read(fd.get(), block, sizeof block)) > 0) text.append(block, n);
  return text;
}

bool write_all(int fd, std::string_view text) {
  while (!text.empty()) {
    const ssize_t n = write(fd, text.data(), text.size());
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return false;
    text.remove_prefix(n);
  }
  return true;
}

int64_t number_behind(const std::string& text, const std::string& key) {
  const size_t at = text.find(key);
  return at == std::string::npos ? -1 : atoll(text.c_str() + at + key.size());
}

bool write_file(const std::string& path, std::string_view text, mode_t mode) {
  if (!make_parents(path)) return false;
  Fd fd(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode));
  return fd.ok() && fchmod(fd.get(), mode) == 0 && write_all(fd.get(), text);
}

bool append_file(const std::string& path, std::string_view text) {
  Fd fd(open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666));
  return fd.ok() && write(fd.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

bool make_dirs(const std::string& path, mode_t mode) {
  if (path.empty() || path == "/") return true;
  if (mkdir(path.c_str(), mode) == 0) return chmod(path.c_str(), mode) == 0;  // whatever the umask
  if (errno == EEXIST) return true;
  if (errno != ENOENT || !make_parents(path)) return false;
  return mkdir(path.c_str(), mode) == 0 && chmod(path.c_str(), mode) == 0;
}

bool make_parents(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos || make_dirs(path.substr(0, slash), 0755);
}

bool copy_file(const std::string& from, const std::string& to) {
  Fd in(open(from.c_str(), O_RDONLY | O_CLOEXEC));
  struct stat st;
  if (!in.ok() || fstat(in.get(), &st) != 0) return false;
  if (!S_ISREG(st.st_mode)) {
    errno = EINVAL;
    return false;
  }
  if (!make_parents(to)) return false;
  if (unlink(to.c_str()) != 0 && errno != ENOENT) return false;
  Fd out(open(to.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (!out.ok() || fchmod(out.get(), st.st_mode & 07777) != 0) return false;
  for (off_t left = st.st_size; left > 0;) {
    const ssize_t n = sendfile(out.get(), in.get(), nullptr, left);
    if (n < 0) return false;
    if (n == 0) break;  // truncated meanwhile
    left -= n;
  }
  return true;
}

std::vector<std::string> split(std::string_view text, const char* separators) {
  std::vector<std::string> fields;
  while (true) {
    const size_t begin = text.find_first_not_of(separators);
    if (begin == std::string_view::npos) return fields;
    text.remove_prefix(begin);
    const size_t end = std::min(text.find_first_of(separators), text.size());
    fields.emplace_back(text.substr(0, end));
    text.remove_prefix(end);
  }
}

bool parse_number(std::string_view text, long low, long high, long* number) {
  const char* end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, *number);
  return result.ec == std::errc() && result.ptr == end && *number >= low && *number <= high;
}

std::string errno_text(const std::string& what) {
  const int saved_errno = errno;
  return what + ": " + strerror(saved_errno);
}
