// Stand-in for the vendor's side: the services that the daemon asks by property to move their logs
// into the store, and the modem logger that it switches on and off.
//
// Properties: bench.vendor (off: exit), bench.vendor.{common,wifi,minidump}_delay_ms (time until a
// request is done, default 200; "never": no answer).
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <vector>

#include "phone/init/services.h"
#include "phone/tools/property.h"
#include "phone/util.h"
#include "platform/linux/bench_phone.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* kPropertiesLog = "/dev/bench/properties.log";
constexpr const char* kSwitch = "bench.vendor";
constexpr const char* kVendorRuns = "/data/vendor/zelkalog/common/";
constexpr const char* kStorePath = "sys.harrowmossd.log_store_path";
constexpr long kDefaultDelayMs = 200;
constexpr long kLongestDelayMs = 600000;

// ---- Requests. A failure shows as files missing in the store. ----

// Adds the vendor's part to the run, before or after the daemon has moved its own.
void move_common_logs(const PropertyArea& properties) {
  const std::string store = get_property(properties, kStorePath);
  const std::string run = store.substr(store.rfind('/') + 1);
  if (run.empty()) return;
  make_dirs(store, 0777);
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(kVendorRuns + run, error)) {
    std::error_code failed;  // another file system: copy, then remove
    fs::copy(entry.path(), store / entry.path().filename(),
             fs::copy_options::recursive | fs::copy_options::overwrite_existing, failed);
    if (!failed) fs::remove_all(entry.path(), failed);
  }
}

void drop_wifi_logs(const PropertyArea& properties) {
  const std::string store = get_property(properties, kStorePath);
  if (store.empty()) return;
  make_dirs(store, 0777);
  for (const char* name : {"cnss_fw_logs_000.txt", "cnss_fw_logs_001.txt"})
    write_file(store + "/" + name, "wlan: firmware ready\n", 0666);
}

void put_minidump(const PropertyArea& properties) {
  const std::string directory = get_property(properties, "sys.harrowmossd.minidump.path");
  if (directory.empty()) return;
  make_dirs(directory, 0777);
  write_file(directory + "/minidump_0.elf", "\177ELF of a minidump\n", 0666);
}

}  // namespace

struct RequestRow {
  const char* key;
  const char* value;  // set `key` to this to request it
  void (*serve)(const PropertyArea& properties);
  const char* delay;  // property with the delay
  const char* done;   // set to "0" when requested, to "1" when done
};

namespace {

// clang-format off
constexpr RequestRow kRequests[] = {
    {"sys.zelka.harrowmossd.action.mv_vendor_common_logs", "1", move_common_logs,
     "bench.vendor.common_delay_ms", "sys.zelka.harrowmossd.action.mv_vendor_common_logs.done"},
    {"sys.zelka.wifi.log", "disable", drop_wifi_logs,
     "bench.vendor.wifi_delay_ms", "sys.zelka.harrowmossd.action.mv_vendor_wifi_logs.done"},
    {"sys.zelka.harrowmossd.action.mv_minidump_logs", "1", put_minidump,
     "bench.vendor.minidump_delay_ms", "sys.zelka.harrowmossd.action.mv_minidump_logs_done"},
};
constexpr const char* kModemLoggerSwitches[] = {
    "sys.zelka.diag_mdlog_over_qdss_state",
    "sys.zelka.diag_mdlog_state",
};
// clang-format on

// ---- The modem logger: writes while one of its switches is "1". ----

class ModemLogger {
 public:
  explicit ModemLogger(const PropertyArea& properties) : properties_(properties) {}

  void switched(const std::string& value) {
    if (value == "1") {
      directory_ = get_property(properties_, "sys.harrowmossd.diag_mdlog_path");
      bytes_ = 0;
    } else {
      directory_.clear();
    }
  }
  bool runs() const { return !directory_.empty(); }
  // Appends some frames to the current file; removes the oldest file beyond the limit.
  void write_frames() {
    const int file = static_cast<int>(bytes_ / kFileBytes);
    if (!append_file(path_of(file), std::string(kStepBytes, 'q'))) return;  // no directory
    bytes_ += kStepBytes;
    long keep = 0;
    if (!parse_number(get_property(properties_, "persist.sys.harrowmossd.mdlog_counts"), 1, 1000,
                      &keep))
      keep = 25;
    unlink(path_of(file - static_cast<int>(keep)).c_str());
  }

  static constexpr int kStepMs = 100;

 private:
  static constexpr size_t kStepBytes = 4096;
  static constexpr size_t kFileBytes = 256 * 1024;

  std::string path_of(int file) const {
    char name[32];
    snprintf(name, sizeof name, "/diag_log_%04d.qmdl", file);
    return directory_ + name;
  }

  const PropertyArea& properties_;
  std::string directory_;
  size_t bytes_ = 0;
};

// ---- The loop. ----

class Vendor {
 public:
  explicit Vendor(PropertyArea* properties) : properties_(*properties), modem_(*properties) {
    log_.reset(open(kPropertiesLog, O_RDONLY | O_CLOEXEC));
    lseek(log_.get(), 0, SEEK_END);
  }

  // Runs until switched off.
  void run() {
    uint32_t seen = properties_.serial();
    while (get_property(properties_, kSwitch) != "off") {
      read_changes();
      const int wait_ms = serve_what_is_due();
      seen = properties_.wait(seen, wait_ms);
    }
  }

 private:
  struct Waiting {
    const RequestRow* request;
    int64_t due_ms;
  };

  // The log of sets is the queue of requests: it also has sets that do not change a value.
  void read_changes() {
    char block[16384];
    ssize_t n;
    while ((n = read(log_.get(), block, sizeof block)) > 0) partial_.append(block, n);
    size_t end;
    while ((end = partial_.find('\n')) != std::string::npos) {
      const std::string line = partial_.substr(0, end);
      partial_.erase(0, end + 1);
      const size_t blank = line.find(' '), equals = line.find('=');
      if (blank == std::string::npos || equals == std::string::npos || equals < blank) continue;
      was_set(line.substr(blank + 1, equals - blank - 1), line.substr(equals + 1));
    }
  }

  void was_set(const std::string& key, const std::string& value) {
    for (const char* modem_switch : kModemLoggerSwitches) {
      if (key == modem_switch) modem_.switched(value);
    }
    for (const RequestRow& request : kRequests) {
      if (key != request.key || value != request.value) continue;
      properties_.set(request.done, "0");
      waiting_.erase(std::remove_if(waiting_.begin(), waiting_.end(),
                                    [&](const Waiting& w) { return w.request == &request; }),
                     waiting_.end());
      const std::string delay = get_property(properties_, request.delay);
      if (delay == "never") continue;
      long delay_ms = kDefaultDelayMs;
      parse_number(delay, 0, kLongestDelayMs, &delay_ms);
      waiting_.push_back({&request, boot_time_ms() + delay_ms});
    }
  }

  // Milliseconds until the next thing is due.
  int serve_what_is_due() {
    constexpr int kForGoodMs = 60000;
    const int64_t now = boot_time_ms();
    if (modem_.runs() && now >= next_frames_ms_) {
      modem_.write_frames();
      next_frames_ms_ = now + ModemLogger::kStepMs;
    }
    int64_t next = modem_.runs() ? next_frames_ms_ : now + kForGoodMs;
    std::vector<Waiting> later;
    for (const Waiting& waiting : waiting_) {
      if (waiting.due_ms > now) {
        later.push_back(waiting);
        next = std::min(next, waiting.due_ms);
        continue;
      }
      waiting.request->serve(properties_);
      properties_.set(waiting.request->done, "1");
    }
    waiting_ = later;
    return static_cast<int>(std::max<int64_t>(1, next - boot_time_ms()));
  }

  PropertyArea& properties_;
  ModemLogger modem_;
  Fd log_;
  std::string partial_;
  std::vector<Waiting> waiting_;
  int64_t next_frames_ms_ = 0;
};

}  // namespace

int main() {
  require_bench_phone();
  umask(0);
  PropertyArea properties;
  if (!properties.open()) return 1;
  Vendor(&properties).run();
  return 0;
}
