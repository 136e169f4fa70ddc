#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include "phone/adb/services.h"
#include "phone/util.h"

namespace {

constexpr size_t kBlock = 64 * 1024;  // most file content per record

class Files {
 public:
  explicit Files(int host) : host_(host) {}

  void run() {
    while (const std::optional<Record> request = next()) {
      bool known = false;
      for (const auto& row : kRequests) {
        if (number_at(request->header, 0) != row.id) continue;
        known = true;
        (this->*row.serve)(request->payload);
      }
      if (!known) return;  // QUIT, or unknown
    }
  }

 private:
  static const struct Request {
    uint32_t id;
    void (Files::*serve)(const std::string& path);
  } kRequests[4];

  std::optional<Record> next() {
    char block[kBlock];
    while (true) {
      if (std::optional<Record> record = reader_.next()) return record;
      const ssize_t n = reader_.broken() ? 0 : read(host_, block, sizeof block);
      if (n <= 0) return {};
      reader_.add({block, static_cast<size_t>(n)});
    }
  }
  bool answer(uint32_t id, std::string_view text) {
    return write_all(host_, little_endian({id, static_cast<uint32_t>(text.size())})) &&
           write_all(host_, text);
  }
  void fail(const std::string& what) { answer(four("FAIL"), errno_text(what)); }

  // Mode, size and time; zeros when there is no file. The format truncates sizes to 32 bits.
  static std::string stat_record(const std::string& path) {
    struct stat st = {};
    if (lstat(path.c_str(), &st) != 0) st = {};
    return little_endian(
        {st.st_mode, static_cast<uint32_t>(st.st_size), static_cast<uint32_t>(st.st_mtim.tv_sec)});
  }

  void stat(const std::string& path) {
    write_all(host_, little_endian({four("STAT")}) + stat_record(path));
  }

  void list(const std::string& path) {
    if (DIR* directory = opendir(path.c_str())) {
      while (const struct dirent* entry = readdir(directory)) {
        const std::string name = entry->d_name;
        write_all(host_, little_endian({four("DENT")}) + stat_record(path + "/" + name) +
                             little_endian({static_cast<uint32_t>(name.size())}) + name);
      }
      closedir(directory);
    }
    write_all(host_, little_endian({four("DONE"), 0, 0, 0, 0}));
  }

  void receive(const std::string& path) {
    Fd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    char block[kBlock];
    ssize_t n = -1;
    while (file.ok() && (n = read(file.get(), block, sizeof block)) > 0) {
      if (!answer(four("DATA"), {block, static_cast<size_t>(n)})) return;
    }
    if (n < 0) return fail("cannot read " + path);
    answer(four("DONE"), "");
  }

  void send(const std::string& text) {
    std::string path;
    uint32_t mode = 0;
    errno = EINVAL;
    Fd file;
    if (parse_send(text, &path, &mode) && (unlink(path.c_str()) == 0 || errno == ENOENT) &&
        make_parents(path))
      file.reset(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode));
    const bool opened = file.ok();
    int error = opened ? 0 : errno;
    while (const std::optional<Record> record = next()) {
      const uint32_t id = number_at(record->header, 0);
      if (id == four("DATA")) {  // also after an error: the other side sends everything before it
                                 // reads the status
        if (error == 0 && !write_all(file.get(), record->payload)) error = errno;
        continue;
      }
      if (id != four("DONE")) break;
      if (error == 0) {
        const struct timespec times[2] = {{0, UTIME_OMIT}, {number_at(record->header, 4), 0}};
        fchmod(file.get(), mode);
        futimens(file.get(), times);
        answer(four("OKAY"), "");
        return;
      }
      if (opened) unlink(path.c_str());
      errno = error;
      return fail("cannot write " + path);
    }
    if (opened) unlink(path.c_str());
  }

  int host_;
  RecordReader reader_{kSyncFormat};
};

constexpr Files::Request Files::kRequests[] = {{four("STAT"), &Files::stat},
                                               {four("LIST"), &Files::list},
                                               {four("RECV"), &Files::receive},
                                               {four("SEND"), &Files::send}};

}  // namespace

void serve_files(int host) {
  Files(host).run();
  _exit(0);
}
