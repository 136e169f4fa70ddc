#include "client/manifest.h"

#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "client/child.h"
#include "client/files.h"
#include "client/text.h"

namespace {

constexpr const char* kSha256 = "/system/bin/sha256sum";
constexpr std::chrono::minutes kSumLimit{30};  // for one file, of many gigabytes at worst
constexpr size_t kDigits = 64;
constexpr const char* kManifestTail = ".manifest.txt";

constexpr size_t kTarBlock = 512;
constexpr size_t kTarNameMax = 100;
constexpr int64_t kTarEnd = 10240;      // two empty blocks, filled up to a record
constexpr int64_t kTarEntry = 4 * 512;  // header, and header, name and padding of a long name
constexpr int64_t kGzipGrowth = 1000;   // one byte in so many, at most (5 in 16 KiB, and a head)

// Places of the fields in a tar header, and the text that goes there.
struct tar_field {
  size_t offset;
  const char* text;
};

int64_t tar_bytes(const std::string& path) {
  struct stat info;
  if (lstat(path.c_str(), &info) != 0) return 0;
  const int64_t content = S_ISREG(info.st_mode) ? info.st_size : 0;
  int64_t total = kTarEntry + (content + kTarBlock - 1) / kTarBlock * kTarBlock;
  if (!S_ISDIR(info.st_mode)) return total;
  for (const std::string& name : list_directory(path)) total += tar_bytes(path + "/" + name);
  return total;
}

}  // namespace

pack_source make_source(const std::string& name, const std::vector<std::string>& places) {
  std::string base = places[0].substr(0, places[0].find_last_of('/'));
  for (const std::string& place : places) {
    while (place.compare(0, base.size() + 1, base + "/") != 0) base.resize(base.find_last_of('/'));
  }
  pack_source source = {name, base.empty() ? "/" : base, {}};
  for (const std::string& place : places) source.names.push_back(place.substr(base.size() + 1));
  return source;
}

std::vector<packed_file> list_files(const pack_source& source) {
  std::vector<packed_file> files;
  for (const std::string& name : source.names) {
    walk_files(source.base + "/" + name, [&](const std::string& path, int64_t bytes) {
      files.push_back({name + "/" + path, bytes, ""});
    });
  }
  std::sort(files.begin(), files.end(),
            [](const packed_file& a, const packed_file& b) { return a.path < b.path; });
  return files;
}

std::string sha256_of(const environment& env, const std::string& path) {
  // Non-blocking, in case somebody put a FIFO there meanwhile. The tool reads its standard input:
  // no name, however odd, can change what it prints.
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
  if (fd == -1) return "";
  std::string printed;
  const child_setup setup = {{env.root + kSha256}, fd};
  const int status = read_child(setup, kSumLimit, [&](std::string_view text) { printed += text; });
  close(fd);
  const size_t digits = printed.find_first_not_of("0123456789abcdef");
  return status == 0 && digits == kDigits ? printed.substr(0, kDigits) : "";
}

std::string manifest_text(const manifest_head& head, const std::vector<packed_file>& files) {
  int64_t total = 0;
  for (const packed_file& file : files) total += file.bytes;
  const struct {
    const char* key;
    std::string value;
  } rows[] = {
      {"harrowmoss-manifest", "1"},
      {"name", head.name},
      {"state", head.state},
      {"types", head.types},
      {"build", head.build},
      {"identity", head.identity},
      {"protocol", head.protocol},
      {"files", std::to_string(files.size())},
      {"bytes", std::to_string(total)},
  };
  std::string text;
  for (const auto& row : rows) text += std::string(row.key) + ": " + one_line(row.value) + "\n";
  text += "\n";
  for (const packed_file& file : files) {
    char size[24];
    snprintf(size, sizeof size, "%15lld ", static_cast<long long>(file.bytes));
    const std::string sum = file.sha256.empty() ? std::string(kDigits, '-') : file.sha256;
    text += size + sum + "  " + one_line(file.path) + "\n";
  }
  return text;
}

std::string manifest_name(const std::string& name) {
  return name.substr(0, kTarNameMax - strlen(kManifestTail)) + kManifestTail;
}

std::string tar_piece(const std::string& name, const std::string& content, int64_t now) {
  char size[16];
  char time[16];
  snprintf(size, sizeof size, "%011zo", content.size());
  snprintf(time, sizeof time, "%011llo", static_cast<unsigned long long>(now));
  const tar_field fields[] = {
      {100, "0000644"}, {108, "0000000"}, {116, "0000000"},   // mode, user, group
      {124, size},      {136, time},      {148, "        "},  // the sum counts itself as blanks
      {156, "0"},       {257, "ustar"},   {263, "00"},        // an ordinary file; the format
  };
  std::string header(kTarBlock, '\0');
  header.replace(0, name.size(), name);
  for (const tar_field& field : fields) {
    header.replace(field.offset, strlen(field.text), field.text);
  }
  unsigned sum = 0;
  for (const char c : header) sum += static_cast<unsigned char>(c);
  char sum_text[16];
  snprintf(sum_text, sizeof sum_text, "%06o", sum);
  header.replace(148, 7, sum_text, 7);  // six digits, a zero byte; a blank stays behind it
  std::string piece = header + content;
  piece.resize((piece.size() + kTarBlock - 1) / kTarBlock * kTarBlock);
  return piece;
}

int64_t archive_bound(const pack_source& source, size_t manifest) {
  int64_t total = kTarEnd + kTarEntry + static_cast<int64_t>(manifest) + kTarBlock;
  for (const std::string& name : source.names) total += tar_bytes(source.base + "/" + name);
  return total + total / kGzipGrowth + kTarBlock;
}
