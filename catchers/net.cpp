#include "catchers/net.h"

#include <fcntl.h>
#include <stdio.h>
#include <string.h>

#include <iterator>
#include <string>

#include "base/beneath.h"
#include "base/process.h"
#include "base/text.h"
#include "catchers/catchers.h"
#include "catchers/type_dir.h"
#include "debuglog/logger_types.h"
#include "debuglog/run.h"
#include "debuglog/workers.h"
#include "model/paths.h"
#include "model/properties.h"
#include "selflog/log.h"
#include "selflog/props.h"
#include "storage/shell.h"
#include "storage/utils.h"

char net_log_dir[256];

namespace {

constexpr char kLogSource[] = "commands";
constexpr size_t kLineSize = 1024;

#define IP "/system/bin/ip"
#define IPTABLES "/system/bin/iptables"
#define IP6TABLES "/system/bin/ip6tables"

// clang-format off
constexpr net_cmd_path kSnapshot[] = {
    {"/system/bin/date",    ""},
    {IP,                    " xfrm state show"},
    {IP,                    " xfrm policy show"},
    {IP,                    " addr"},
    {IPTABLES,              " -t raw -L -n -v"},
    {IPTABLES,              " -t mangle -L -n -v"},
    {IPTABLES,              " -L -n -v"},
    {IPTABLES,              " -t nat -L -n -v"},
    {IP6TABLES,             " -t raw -L -n -v"},
    {IP6TABLES,             " -t mangle -L -n -v"},
    {IP6TABLES,             " -L -n -v"},
    {IP6TABLES,             " -t nat -L -n -v"},
    {IP,                    " rule show"},
    {IP,                    " -6 rule show"},
    {IP,                    " route show table all"},
    {IP,                    " -6 route show table all"},
    {IP,                    " route show table rmnet_data0"},
    {IP,                    " route show table rmnet_data1"},
    {IP,                    " route show table rmnet_data2"},
    {IP,                    " route show table rmnet_data7"},
    {IP,                    " route show table r_rmnet_data0"},
    {IP,                    " route show table r_rmnet_data1"},
    {IP,                    " route show table r_rmnet_data2"},
    {IP,                    " -6 route show table rmnet_data0"},
    {IP,                    " -6 route show table rmnet_data1"},
    {IP,                    " -6 route show table rmnet_data2"},
    {IP,                    " -6 route show table rmnet_data7"},
    {IP,                    " -6 route show table r_rmnet_data0"},  // r_rmnet_data1 has no IPv6 row
    {IP,                    " -6 route show table r_rmnet_data2"},
    {"/system/bin/cat",     " /proc/sys/net/ipv4/ip_forward"},
    {"/system/bin/cat",     " /proc/net/ip_conntrack"},
    {"/system/bin/dumpsys", " network_management"},
    {"/system/bin/netstat", " -anp"},
};
// clang-format on
static_assert(std::size(kSnapshot) == 33, "two snapshots are compared row by row");

#undef IP
#undef IPTABLES
#undef IP6TABLES

// <dir>/<build's display id>-netlog.pcap.
std::string capture_path(const char* dir) {
  const std::string display_id = get_name_prop(kDisplayIdProp, "zelka");
  const size_t length = strlen(dir);
  const char* separator = length > 0 && dir[length - 1] == '/' ? "" : "/";
  return std::string(dir) + separator + display_id + "-netlog.pcap";
}

// The capture worker's body.
[[noreturn]] void run_capture(const char* name, const std::string& path) {
  set_process_name(name);
  creat_file(path.c_str());
  const ShellText command = ShellText(kShell).arg(kNetScript).target(path);
  if (command.size() < kPathSize) {
    run_shell(command);
  } else {
    LOGE_AS("catcher_net_log", "no command for the capture file %s", path.c_str());
  }
  end_process(0);
}

void start_net_cmd_log() {
  LOGD("start net cmd log");
  if (net_log_dir[0] == '\0' || !is_logger_enabled() || !has_logger_type(kTypeNet)) return;
  catcher_net_cmd_log(kSnapshot, std::size(kSnapshot), "iptables-start.txt");
}

// A command's section of the snapshot. Its head is written with its first line, because a command
// that cannot be started has none.
struct SnapshotSection {
  FILE* file;
  const char* command;
  bool has_head;

  void write_head() {
    if (!has_head) fprintf(file, "%s\n", command);
    has_head = true;
  }
};

void write_line(void* context, const char* line) {
  auto* section = static_cast<SnapshotSection*>(context);
  section->write_head();
  fputs(line, section->file);
}

void write_command_output(FILE* file, const ShellText& command, int bound_ms) {
  SnapshotSection section = {file, command.c_str(), false};
  char line[kLineSize];
  if (run_shell_lines(command, bound_ms, line, sizeof(line), write_line, &section) == 0) {
    section.write_head();
    fputs("\n", file);
  } else {
    fprintf(file, "%s failed\n", command.c_str());
  }
  fflush(file);
}

}  // namespace

int catcher_net_log(const char* log_dir, const char* name) {
  LOGD("function invoked");
  char dir[kPathSize];
  make_type_dir(dir, log_dir, name);
  copy_or_abort(net_log_dir, dir);
  const std::string path = capture_path(dir);
  const pid_t pid = fork_worker(__func__);
  if (pid == -1) {
    net_log_pid = 0;
    return -1;
  }
  if (pid == 0) run_capture(name, path);
  LOGE("fork child process, pid:%d, save net pid to s_debug_group \n", pid);
  net_log_pid = pid;
  start_net_cmd_log();
  return 0;
}

void catcher_net_cmd_log(const net_cmd_path* table, size_t count, const char* file_name) {
  LOGD("function invoked");
  if (file_name == nullptr) return;
  char path[kPathSize] = {};
  copy_or_abort(path, net_log_dir);
  append_or_abort(path, "/");
  append_or_abort(path, file_name);
  if (creat_file(path) < 0) return;
  FILE* file = open_stream_beneath(path, O_RDWR | O_TRUNC, "w+");
  if (file == nullptr) return;
  SeriesBudget budget(file_name);
  for (size_t i = 0; i < count; i++) {
    if (table[i].cmd.get() == nullptr || table[i].args.get() == nullptr) continue;
    const int left = budget.left();
    if (left == 0) break;
    write_command_output(file, ShellText(table[i].cmd).raw(table[i].args), left);
  }
  fclose(file);
}

void stop_net_cmd_log() {
  LOGD("function invoked");
  if (net_log_dir[0] == '\0') return;
  const std::string enable = get_string_prop(kEnableProp, "on");
  if (starts_with(enable.c_str(), "off") && has_logger_type(kTypeNet)) {
    LOGD("stop net cmd log");
    // The size monitor may have started the current run.
    const std::string name = get_file_name(net_log_dir);
    format_cut(net_log_dir, "%s/%s", s_log_store_path, name.c_str());
    catcher_net_cmd_log(kSnapshot, std::size(kSnapshot), "iptables-stop.txt");
  }
  net_log_dir[0] = '\0';
}
