#include "phone/host/daemon.h"

#include <fcntl.h>
#include <string.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <regex>

#include "model/log_buffers.h"
#include "phone/host/failure.h"
#include "platform/linux/log_record.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* kMainBuffer = "/dev/log/main";
constexpr const char* kDaemonTag = "harrowmossd";
constexpr const char* kStorePathProp = "sys.harrowmossd.log_store_path";

// "source|function|line~parent:: text"
bool parse_convention(const std::string& message, LogLine* line) {
  const size_t first = message.find('|'), second = message.find('|', first + 1);
  const size_t text = message.find(":: ");
  if (first == std::string::npos || second == std::string::npos || text == std::string::npos ||
      text < second)
    return false;
  line->source = message.substr(0, first);
  line->function = message.substr(first + 1, second - first - 1);
  line->text = message.substr(text + 3);
  return true;
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const LogLine& line) {
  return out << line.priority << " " << line.pid << " " << line.source << "|" << line.function
             << ": " << line.text;
}

std::vector<LogLine> daemon_log(const Phone& phone) {
  const std::string bytes = phone.read(kMainBuffer);
  std::vector<LogLine> lines;
  for (size_t at = 0; at + sizeof(LogRecord) <= bytes.size();) {
    LogRecord record;
    memcpy(&record, bytes.data() + at, sizeof record);
    if (record.magic != kLogRecordMagic) {
      at += 4;
      continue;
    }
    const std::string payload = bytes.substr(at + sizeof record, record.size);
    const std::string tag = payload.c_str();
    LogLine line;
    line.priority = record.priority;
    line.pid = record.pid;
    line.tid = record.tid;
    line.time_ms = record.sec * INT64_C(1000) + record.nsec / 1000000;
    if (tag == kDaemonTag && tag.size() < payload.size() &&
        parse_convention(payload.c_str() + tag.size() + 1, &line))
      lines.push_back(std::move(line));
    at += (sizeof record + record.size + 3) & ~size_t{3};
  }
  return lines;
}

std::vector<LogLine> lines_with(const std::vector<LogLine>& lines, const std::string& start) {
  std::vector<LogLine> found;
  std::copy_if(lines.begin(), lines.end(), std::back_inserter(found),
               [&](const LogLine& line) { return line.text.compare(0, start.size(), start) == 0; });
  return found;
}

std::vector<std::string> main_thread_log(const Phone& phone, size_t from) {
  const std::vector<LogLine> lines = daemon_log(phone);
  const pid_t pid = phone.daemon_pid();
  std::vector<std::string> texts;
  for (size_t i = from; i < lines.size(); i++) {
    if (lines[i].pid == pid && lines[i].tid == pid)
      texts.push_back(std::to_string(lines[i].priority) + " " + lines[i].text);
  }
  return texts;
}

int count_lines(const Phone& phone, const std::string& start) {
  return static_cast<int>(lines_with(daemon_log(phone), start).size());
}

bool eventually_logged(const Phone& phone, const std::string& start, int times, int limit_ms) {
  return eventually([&] { return count_lines(phone, start) == times; }, limit_ms);
}

size_t index_of(const std::vector<std::string>& texts, const std::string& start) {
  size_t at = 0;
  while (at < texts.size() && texts[at].compare(0, start.size(), start) != 0) at++;
  return at;
}

std::vector<std::string> sets_of_daemon(const Phone& phone, size_t from) {
  static const std::regex run("[0-9]+#[0-9_-]+");
  const std::vector<PropertySet> all = phone.properties_log();
  std::vector<std::string> sets;
  for (size_t i = from; i < all.size(); i++) {
    if (all[i].pid != phone.daemon_pid()) continue;
    sets.push_back(std::regex_replace(all[i].key + "=" + all[i].value, run, "RUN"));
  }
  return sets;
}

std::string rest_of_line(const Phone& phone, const std::string& start) {
  const std::vector<LogLine> found = lines_with(daemon_log(phone), start);
  expect_of_phone(found.size() == 1, std::to_string(found.size()) + " lines: " + start);
  return found.empty() ? "" : found[0].text.substr(start.size());
}

namespace {

bool reports_kill(const LogLine& line) {
  return line.text.find("kill it") != std::string::npos ||
         line.text.find("kill them") != std::string::npos;
}

}  // namespace

std::vector<std::string> overdue_kills(const Phone& phone) {
  std::vector<std::string> found;
  for (const LogLine& line : daemon_log(phone)) {
    const bool report =
        line.function == "copy_system_propertie" || line.function == "get_general_log";
    if (reports_kill(line) && !report) found.push_back(line.text);
  }
  return found;
}

std::vector<LogLine> cut_reports(const Phone& phone, const std::string& function) {
  std::vector<LogLine> found;
  for (const LogLine& line : daemon_log(phone)) {
    if (reports_kill(line) && line.function == function) found.push_back(line);
  }
  return found;
}

std::vector<std::string> promised(const Phone& phone, std::vector<std::string> files) {
  if (cut_reports(phone, "copy_system_propertie").empty()) return files;
  const auto is_report = [](const std::string& file) {
    return file.find(".prop") != std::string::npos;
  };
  files.erase(std::remove_if(files.begin(), files.end(), is_report), files.end());
  return files;
}

std::vector<std::string> commands_of(const Phone& phone, pid_t pid) {
  std::vector<std::string> commands;
  for (const BenchCall& call : phone.calls_of("/system/bin/sh")) {
    if (call.ppid == pid && call.argv.size() == 3) commands.push_back(call.argv[2]);
  }
  return commands;
}

std::vector<std::string> quick_vendor(std::vector<std::string> more) {
  more.insert(more.begin(), {"--prop", "bench.vendor=off", "--prop", "bench.logcat.preallocate=0",
                             "--prop", "sys.zelka.harrowmossd.action.mv_vendor_common_logs.done=1",
                             "--prop", "sys.zelka.harrowmossd.action.mv_vendor_wifi_logs.done=1"});
  return more;
}

namespace {

int32_t int_reply(const std::string& digits) {
  expect_of_phone(digits.size() == 8, "not an int32: " + digits);
  if (digits.size() != 8) return -99;
  int32_t value;
  memcpy(&value, from_hex(digits).data(), sizeof value);
  return value;
}

}  // namespace

int32_t start_logging(const Phone& phone, int32_t mask) {
  return int_reply(ask(phone, 2, little_endian(static_cast<uint32_t>(mask), 4), kSwitchMs));
}

int32_t stop_logging(const Phone& phone) {
  return int_reply(ask(phone, 3, "", kSwitchMs));
}

bool serves(const Phone& phone, int limit_ms) {
  Client client(phone);
  return client.send(request(1, 1)) &&
         hex(client.reply(limit_ms)) == "1000000001000000010000000000000001000000";
}

std::vector<PhoneProcess> children_of_daemon(const Phone& phone) {
  std::vector<pid_t> family = {phone.daemon_pid()};
  std::vector<PhoneProcess> found;
  std::vector<PhoneProcess> all = phone.processes();
  for (bool grown = true; grown;) {
    grown = false;
    for (PhoneProcess& process : all) {
      if (process.pid == 0 || std::find(family.begin(), family.end(), process.ppid) == family.end())
        continue;
      family.push_back(process.pid);
      found.push_back(process);
      process.pid = 0;
      grown = true;
    }
  }
  return found;
}

bool settled(const Phone& phone) {
  return eventually([&] { return count_lines(phone, "waitpid success") >= 1; }) &&
         eventually_childless(phone);
}

bool eventually_childless(const Phone& phone, int limit_ms) {
  return eventually([&] { return children_of_daemon(phone).empty(); }, limit_ms);
}

std::vector<PhoneProcess> debug_logcats(const Phone& phone) {
  std::vector<PhoneProcess> found;
  for (PhoneProcess& process : phone.named("logcat")) {
    if (!process.cmdline.empty() && process.cmdline[0].find(":debug-") != std::string::npos)
      found.push_back(std::move(process));
  }
  return found;
}

std::vector<PhoneProcess> collectors(const Phone& phone) {
  std::vector<PhoneProcess> found;
  for (PhoneProcess& process : phone.named("logcat")) {
    if (!process.cmdline.empty() && process.cmdline[0] == "harrowmossd:SLC")
      found.push_back(std::move(process));
  }
  return found;
}

namespace {

PhoneProcess running_logcat(const Phone& phone, const std::string& buffer) {
  for (PhoneProcess& process : phone.named("logcat")) {
    if (!process.cmdline.empty() && process.cmdline[0] == "harrowmossd:debug-" + buffer + "-vesk")
      return std::move(process);
  }
  return {};
}

}  // namespace

std::vector<PhoneProcess> logcats(const Phone& phone) {
  std::vector<PhoneProcess> found;
  for (const char* buffer : kLogBuffers) {
    PhoneProcess process = running_logcat(phone, buffer);
    if (process.pid > 0) found.push_back(std::move(process));
  }
  return found;
}

bool all_logcats_run(const Phone& phone) {
  return eventually([&phone] { return logcats(phone).size() == 6; });
}

PhoneProcess logcat_of(const Phone& phone, const std::string& buffer) {
  PhoneProcess found;
  eventually([&] { return (found = running_logcat(phone, buffer)).pid > 0; });
  return found;
}

PhoneProcess size_monitor(const Phone& phone) {
  for (const PhoneProcess& process : phone.named("harrowmossd-lsm")) {
    if (process.state != 'Z') return process;
  }
  return {};
}

PhoneProcess running_monitor(const Phone& phone) {
  PhoneProcess monitor;
  const bool runs = eventually([&] {
    monitor = size_monitor(phone);
    const std::vector<LogLine> begun = lines_with(daemon_log(phone), " into monitorLogSizeThread");
    return std::any_of(begun.begin(), begun.end(),
                       [&](const LogLine& line) { return line.pid == monitor.pid; });
  });
  expect_of_phone(runs, "no size monitor");
  return monitor;
}

bool is_alive(const Phone& phone, pid_t pid) {
  for (const PhoneProcess& process : phone.processes()) {
    if (process.pid == pid) return process.state != 'Z';
  }
  return false;
}

std::vector<std::string> descriptors(const Phone& phone, pid_t pid) {
  std::vector<std::string> targets;
  std::error_code error;
  const std::string directory = phone.inside("/proc/" + std::to_string(pid) + "/fd");
  for (const auto& entry : fs::directory_iterator(directory, error)) {
    std::error_code gone;
    targets.push_back(fs::read_symlink(entry.path(), gone).string());
  }
  std::sort(targets.begin(), targets.end());
  return targets;
}

std::string run_name(const Phone& phone) {
  const std::string path = phone.getprop(kStorePathProp);
  return path.substr(path.rfind('/') + 1);
}

std::string current_run(const Phone& phone) {
  const std::string answer = from_hex(ask(phone, 9));  // int32 length, name, NUL, padding
  return answer.size() < 4 ? "" : answer.c_str() + 4;
}

std::vector<std::string> tree(const Phone& phone, const std::string& directory) {
  std::vector<std::string> paths;
  const std::string root = phone.inside(directory) + "/";
  std::error_code error;
  for (const auto& entry : fs::recursive_directory_iterator(root, error)) {
    const std::string path = entry.path().string().substr(root.size());
    paths.push_back(entry.is_directory() && !entry.is_symlink() ? path + "/" : path);
  }
  std::sort(paths.begin(), paths.end());
  return paths;
}

namespace {

constexpr int64_t kMiB = 1 << 20;
constexpr ssize_t kBlock = 4096;

}  // namespace

int64_t available(const Phone& phone, const std::string& volume) {
  struct statvfs info;
  if (statvfs(phone.inside(volume).c_str(), &info) != 0) return -1;
  return static_cast<int64_t>(info.f_bavail * info.f_bsize);
}

void fill(const Phone& phone, const std::string& path, int64_t left) {
  phone.write(path, "");
  const Fd file(open(phone.inside(path).c_str(), O_WRONLY | O_APPEND | O_CLOEXEC));
  const int64_t at_once = available(phone, path) - left - kMiB;
  expect_of_phone(
      posix_fallocate(file.get(), 0, at_once) == 0 && ftruncate(file.get(), at_once) == 0,
      errno_text(path));
  const std::string block(kBlock, 'x');
  while (available(phone, path) > left && write(file.get(), block.data(), block.size()) == kBlock) {
  }
}

void remember_captured(const Phone& phone, Captured* captured) {
  const std::string run = run_name(phone), mobile = working_path(run) + "/mobile";
  for (const std::string& name : phone.list(mobile)) {
    const std::string text = phone.read(mobile + "/" + name);
    if (text.find('\n') == std::string::npos) continue;
    (*captured)[run + "/mobile/" + name] = text.substr(0, text.rfind('\n') + 1);
  }
}

std::vector<std::string> lost(const Phone& phone, const Captured& captured) {
  std::vector<std::string> files;
  for (const auto& [file, text] : captured) {
    if (phone.read(store_path(file)).compare(0, text.size(), text) != 0 &&
        phone.read(working_path(file)).compare(0, text.size(), text) != 0)
      files.push_back(file);
  }
  return files;
}
