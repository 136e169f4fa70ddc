#include "feedback/report.h"

#include <cutils/properties.h>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/vfs.h>
#include <unistd.h>

#include "base/beneath.h"
#include "base/scoped.h"
#include "base/text.h"
#include "selflog/log.h"
#include "storage/shell.h"

namespace {

constexpr char kLogSource[] = "commands";
constexpr size_t kPathSize = 4096;
constexpr size_t kLineSize = 300;  // command output is taken in pieces of this size
constexpr char kSeparator[] = "--------------------------------------------------------\n\n";
constexpr const char* kMounts[] = {"/system", "/data"};

struct BaseInfo {
  const char* label;
  FixedText command;
};
constexpr BaseInfo kBaseInfo[] = {
    {"Version Number", "getprop ro.build.display.id"},
    {"Device Battery", "cat /sys/class/power_supply/battery/capacity"},
    {"EMMC Manufacturer", "cat /sys/block/mmcblk0/device/manfid"},
    {"Battery Temperature", "cat /sys/class/power_supply/battery/temp"},
    {"Battery Voltage", "cat /sys/class/power_supply/battery/voltage_now"},
    {"ro.bootmode", "getprop ro.bootmode"},
    {"Network Information", "getprop gsm.network.type"},
    {"Location", "getprop gsm.operator.iso-country"},
    {"Single And Double Card", "getprop gsm.sim.state"},
    {"SN Number", "getprop ro.serialno"},
};

std::string header_row() {
  char row[128];
  format_cut(row, "%-20s  %16s  %16s  %16s  %10s\n", "Filesystem", "Size", "Used", "Free",
             "Blksize");
  return row;
}

void write_text(int fd, const char* text) {
  (void)!write(fd, text, strlen(text));
}

}  // namespace

void append_info(const char* dir, const char* name, const char* text) {
  char path[kPathSize];
  format_cut(path, "%s%s", dir, name);
  FILE* file = open_stream_beneath(path, O_RDWR | O_APPEND | O_CREAT, "a+");
  if (file == nullptr) {
    LOGE("%s create/open failed!\n", path);
    return;
  }
  fwrite(text, 1, strlen(text), file);
  fclose(file);
}

void write_info(const char* dir, const char* name) {
  std::string block = header_row();
  for (const char* mount : kMounts) block += write_mount_info_detail(mount);
  block += "\n";
  SeriesBudget budget(name);
  for (const BaseInfo& info : kBaseInfo) {
    const int left = budget.left();
    if (left > 0) block += write_device_base_info(info.label, info.command, left);
  }
  block += kSeparator;
  block += write_device_base_info("Memory", "cat /proc/meminfo");
  block += kSeparator;
  append_info(dir, name, block.c_str());
}

std::string write_mount_info_detail(const char* mount) {
  struct statfs info = {};
  if (statfs(mount, &info) != 0 || info.f_blocks == 0) {
    return std::string("Failed to get filesystem:") + mount + " information!\n";
  }
  const auto block = static_cast<long long>(info.f_bsize);
  const auto total = static_cast<long long>(info.f_blocks);
  const auto unused = static_cast<long long>(info.f_bfree);  // free to the superuser
  char row[256];
  format_cut(row, "%-20s  %15lld%c  %15lld%c  %15lld%c  %10d\n", mount, block * total, 'B',
             (total - unused) * block, 'B', block * unused, 'B', static_cast<int>(info.f_bsize));
  return row;
}

std::string write_device_base_info(const char* label, FixedText command, int bound_ms) {
  char head[64];
  format_cut(head, "%-22s  ", label);
  struct Item {
    std::string text;
    bool has_line;
  } out = {head, false};
  const auto on_line = [](void* context, const char* line) {
    auto* to = static_cast<Item*>(context);
    if (to->has_line) to->text.append(24, ' ');  // under the first line
    to->text += line;
    to->has_line = true;
  };
  char line[kLineSize];
  if (run_shell_lines(command, bound_ms, line, sizeof(line), on_line, &out) != 0) return "";
  return out.text + "\n";
}

void write_build_state(const char* dir, const char* name) {
  append_info(dir, name, isRooted() ? "IsRoot:Y\n" : "IsRoot:N\n");
}

bool isRooted() {
  constexpr char kRootedProp[] = "persist.sys.zelka.isroot";
  char path[256] = {};
  const char* environment = getenv("PATH");
  copy_or_abort(path, environment == nullptr ? "" : environment);
  char rooted[PROPERTY_VALUE_MAX] = {};
  char* rest = nullptr;
  for (char* dir = strtok_r(path, ":", &rest); dir != nullptr;
       dir = strtok_r(nullptr, ":", &rest)) {
    char candidate[128] = {};
    format_cut(candidate, "%s/su", dir);
    if (access(candidate, F_OK) != 0) continue;
    LOGD("%s su exist", candidate);
    return true;
  }
  property_get(kRootedProp, rooted, "");
  return strcmp(rooted, "1") == 0;
}

void write_cmd_output(const char* dir, const char* name, FixedText command) {
  char path[kPathSize];
  format_cut(path, "%s%s", dir, name);
  char frame[128];
  format_cut(frame, "\n----- %s -----\n", command.get());
  ScopedFd fd(open_file_beneath(path, O_RDWR | O_APPEND));
  write_text(fd.get(), frame);
  char line[kLineSize];
  const auto on_line = [](void* to, const char* text) {
    write_text(static_cast<ScopedFd*>(to)->get(), text);
  };
  run_shell_lines(command, kToolBoundMs, line, sizeof(line), on_line, &fd);
  write_text(fd.get(), frame);
}
