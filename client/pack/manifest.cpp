#include "client/pack/manifest.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <deque>
#include <map>

#include "base/scoped.h"
#include "client/support/child.h"
#include "client/support/files.h"
#include "client/support/text.h"
#include "model/version.h"

namespace {

constexpr const char* kSha256 = "/system/bin/sha256sum";
constexpr std::chrono::minutes kSumLimit{30};  // for one start: a file of many gigabytes at worst
constexpr size_t kSumFiles = 256;              // for one start: so many are open at once
constexpr int64_t kSumBytes = 1 << 30;         // after which no further file is added
constexpr const char* kDescriptors = "/proc/self/fd/";
constexpr size_t kDigits = 64;
constexpr const char* kManifestTail = ".manifest.txt";

constexpr size_t kTarBlock = 512;
constexpr size_t kTarNameMax = 100;
constexpr int64_t kTarEnd = 10240;      // two empty blocks, filled up to a record
constexpr int64_t kTarEntry = 4 * 512;  // header, and header, name and padding of a long name
constexpr int64_t kGzipGrowth = 1000;   // one byte in so many, at most (5 in 16 KiB, and a head)

// Places of the fields in a tar header, and the text that goes there.
struct TarField {
  size_t offset;
  const char* text;
};

// Writes the sums of paths[first] and what follows, as many as one start of the tool takes; returns
// the index of the next. The tool gets numbers of descriptors: no name, however odd, can change
// what it prints, and what is put in a file's place meanwhile is not waited for.
size_t add_sums(const Environment& env, const std::vector<std::string>& paths, size_t first,
                std::vector<std::string>* sums) {
  ChildSetup setup = {{env.root + kSha256}};
  std::deque<ScopedFd> files;
  std::map<std::string, size_t> places;  // indices by what the tool calls the file
  int64_t bytes = 0;
  size_t next = first;
  for (; next < paths.size() && files.size() < kSumFiles && bytes < kSumBytes; next++) {
    const int fd = open(paths[next].c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (fd == -1 && errno == EMFILE && !files.empty()) break;
    files.emplace_back(fd);
    struct stat info;
    if (fd == -1 || fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) continue;
    bytes += info.st_size;
    setup.kept.push_back(fd);
    setup.argv.push_back(kDescriptors + std::to_string(fd));
    places[setup.argv.back()] = next;
  }
  if (places.empty()) return next;  // without a name it would read its standard input
  std::string printed;
  read_child(setup, kSumLimit, [&](std::string_view text) { printed += text; });
  for (size_t start = 0, end; (end = printed.find('\n', start)) != std::string::npos;
       start = end + 1) {
    const std::string sum = printed.substr(start, end - start);  // digits, two blanks, name
    if (sum.find_first_not_of("0123456789abcdef") != kDigits || sum.size() < kDigits + 2) continue;
    const auto place = places.find(sum.substr(kDigits + 2));
    if (place != places.end()) (*sums)[place->second] = sum.substr(0, kDigits);
  }
  return next;
}

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

PackSource make_source(const std::string& name, const std::vector<std::string>& places) {
  std::string base = places[0].substr(0, places[0].find_last_of('/'));
  for (const std::string& place : places) {
    while (place.compare(0, base.size() + 1, base + "/") != 0) base.resize(base.find_last_of('/'));
  }
  PackSource source = {name, base.empty() ? "/" : base, {}};
  for (const std::string& place : places) source.names.push_back(place.substr(base.size() + 1));
  return source;
}

std::vector<PackedFile> list_files(const PackSource& source) {
  std::vector<PackedFile> files;
  for (const std::string& name : source.names) {
    walk_files(source.base + "/" + name, [&](const std::string& path, int64_t bytes) {
      files.push_back({name + "/" + path, bytes, ""});
    });
  }
  std::sort(files.begin(), files.end(),
            [](const PackedFile& a, const PackedFile& b) { return a.path < b.path; });
  return files;
}

std::vector<std::string> sha256_of(const Environment& env, const std::vector<std::string>& paths) {
  std::vector<std::string> sums(paths.size());
  for (size_t next = 0; next < paths.size();) next = add_sums(env, paths, next, &sums);
  return sums;
}

std::string manifest_text(const ManifestHead& head, const std::vector<PackedFile>& files) {
  int64_t total = 0;
  for (const PackedFile& file : files) total += file.bytes;
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
      {"harrowmossctl", kReleaseVersion},
      {"files", std::to_string(files.size())},
      {"bytes", std::to_string(total)},
  };
  std::string text;
  for (const auto& row : rows) text += std::string(row.key) + ": " + one_line(row.value) + "\n";
  text += "\n";
  for (const PackedFile& file : files) {
    char size[24];
    snprintf(size, sizeof size, "%15lld ", static_cast<long long>(file.bytes));
    const std::string sum = file.sha256.empty() ? std::string(kDigits, '-') : file.sha256;
    text += size + sum + "  " + one_line(file.path) + "\n";
  }
  return text;
}

std::string entry_name(const std::string& name, const std::string& ending) {
  return name.substr(0, kTarNameMax - ending.size()) + ending;
}

std::string manifest_name(const std::string& name) {
  return entry_name(name, kManifestTail);
}

std::string tar_entry(const std::string& name, const std::string& content, int64_t now) {
  char size[16];
  char time[16];
  snprintf(size, sizeof size, "%011zo", content.size());
  snprintf(time, sizeof time, "%011llo", static_cast<unsigned long long>(now));
  const TarField fields[] = {
      {100, "0000644"}, {108, "0000000"}, {116, "0000000"},   // mode, user, group
      {124, size},      {136, time},      {148, "        "},  // the sum counts itself as blanks
      {156, "0"},       {257, "ustar"},   {263, "00"},        // an ordinary file; the format
  };
  std::string header(kTarBlock, '\0');
  header.replace(0, name.size(), name);
  for (const TarField& field : fields) {
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

int64_t archive_bound(const PackSource& source, size_t manifest) {
  int64_t total = kTarEnd + kTarEntry + static_cast<int64_t>(manifest) + kTarBlock;
  for (const std::string& name : source.names) total += tar_bytes(source.base + "/" + name);
  return total + total / kGzipGrowth + kTarBlock;
}
