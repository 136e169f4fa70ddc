#include <cutils/properties.h>
#include <sys/stat.h>

#include <memory>
#include <string>

#include "base/text.h"
#include "debuglog/vendor_moves.h"
#include "feedback/feedback.h"
#include "model/feedback_sources.h"
#include "selflog/log.h"
#include "storage/copied.h"
#include "storage/linked_move.h"
#include "storage/shell.h"
#include "storage/store.h"
#include "storage/utils.h"

namespace {

constexpr char kLogSource[] = "commands";
constexpr char kBluetoothSnoops[] = "/data/misc/bluetooth/logs/snoops";
constexpr char kMinidumpDoneProp[] = "sys.zelka.harrowmossd.action.mv_minidump_logs_done";
constexpr int kMinidumpPolls = 25;  // of 100 ms

// Copies `source` to `target`, and deletes `deleted` once the copy is known to be whole. Otherwise
// it stays, with one error line.
void copy_then_delete(const char* source, const char* target, const char* deleted) {
  const std::string place = place_of_copy(source, target);
  if (copy_dir(source, target) == -1) return;  // was not begun
  if (is_copied(source, place.c_str())) delete_dir(deleted);
}

int get_bootfail_log(const char* dir) {
  copy_dir(kAnrDir, dir);
  LinkedMove move(kBootFailLog, kGeneralDir);
  if (move.prepare() == MoveWay::kStays) {
    LOGE("%s", move.refusal(kBootFailLog, kGeneralDir).c_str());
    return 0;
  }
  run_shell(ShellText("mv").arg(kBootFailLog).target(kStagedBootFailLog));
  move.settle();
  return 0;
}

int get_pstore_log(const char* dir) {
  return copy_dir2(kPstoreDir, dir);
}

int log_only(const char* function) {
  LOGD_AS(function, "function invoked");
  return 0;
}

// Accepted for older apps, which still select them.
int get_memory_log(const char*) {
  return log_only(__func__);
}
int get_systrace_log(const char*) {
  return log_only(__func__);
}
int get_screen_record(const char*) {
  return log_only(__func__);
}
int get_cell_log(const char*) {
  return log_only(__func__);
}

// Whether `dir` is the directory that holds `source`.
bool holds(const char* dir, const char* source) {
  const std::string parent = std::string(source) + "/..";
  struct stat wanted;
  struct stat info;
  return stat(parent.c_str(), &wanted) == 0 && stat(dir, &info) == 0 &&
         wanted.st_dev == info.st_dev && wanted.st_ino == info.st_ino;
}

int get_power_log(const char* dir) {
  LOGD("function invoked");
  run_tool("/system/bin/sh /system/etc/power_logs_feedback.sh");
  if (holds(dir, kPowerFeedbackDir)) return 0;  // in its place already; nothing to copy nor delete
  copy_then_delete(kPowerFeedbackDir, dir, kPowerFeedbackDir);
  return 0;
}

int get_mtkdb_log(const char* dir) {
  LOGD("function invoked");
  const std::unique_ptr<char[]> latest(getLatestFile(kExceptionDir, kFatalWord));
  if (latest == nullptr || latest[0] == '\0') return 0;
  if (!command_fits(ShellCommand::kCopyDir, latest.get(), dir)) {
    LOGE("name too long to copy: %s", latest.get());
    return 0;
  }
  copy_then_delete(latest.get(), dir, kExceptionDir);
  return 0;
}

}  // namespace

// clang-format off
constexpr FeedbackGetter kFeedbackGetters[kFeedbackGetterCount] = {  // run top to bottom, not in bit order
    {kSelectBootfail,     get_bootfail_log,  "get_bootfail_log"},
    {kSelectGeneral,      get_general_log,   "get_general_log"},
    {kSelectTombstone,    get_tombstone_log, "get_tombstone_log"},
    {kSelectAnr,          get_anr_log,       "get_anr_log"},
    {kSelectPstore,       get_pstore_log,    "get_pstore_log"},
    {kSelectMemory,       get_memory_log,    "get_memory_log"},
    {kSelectSystrace,     get_systrace_log,  "get_systrace_log"},
    {kSelectScreenrecord, get_screen_record, "get_screen_record"},
    {kSelectCell,         get_cell_log,      "get_cell_log"},
    {kSelectPower,        get_power_log,     "get_power_log"},
    {kSelectExceptions,   get_mtkdb_log,     "get_mtkdb_log"},
    {kSelectBluetooth,    get_bluetooth_log, "get_bluetooth_log"},
    {kSelectMinidump,     get_minidump_log,  "get_minidump_log"},
};
// clang-format on

namespace {

constexpr bool has_the_order_of_the_names() {
  if (sizeof(kFeedbackNames) / sizeof(kFeedbackNames[0]) != kFeedbackGetterCount) return false;
  for (int i = 0; i < kFeedbackGetterCount; i++) {
    if (kFeedbackGetters[i].bit != kFeedbackNames[i].mask) return false;
  }
  return true;
}
static_assert(has_the_order_of_the_names(),
              "each named selection is collected, in the order of the names");

}  // namespace

const char* feedback_destination_fault(int mask, const char* dir) {
  std::vector<std::string_view> selected;
  for (const FeedbackSource& source : kFeedbackSources) {
    if ((source.selection & mask) != 0) selected.push_back(source.directory);
  }
  // The longest of the commands.
  const bool fits = command_fits(ShellCommand::kCopyDir, kPowerFeedbackDir, dir);
  return destination_fault(dir, selected, fits);
}

int get_tombstone_log(const char* dir) {
  return copy_dir2(kTombstoneDir, dir);
}

int get_anr_log(const char* dir) {
  return copy_dir2(kAnrDir, dir);
}

int get_bluetooth_log(const char* /*dir*/) {
  LOGD("function invoked, setprop ssrdump 1");
  property_set("log.wl.capture.ssrdump", "1");
  if (is_dir_exist(kBluetoothSnoops) != 0) return 0;
  char dir[128];
  format_cut(dir, "%sbtlog", kWorkingDir);
  if (is_dir_exist(dir) != 0) creat_dir(dir);
  copy_then_delete(kBluetoothLogs, dir, kBluetoothLogs);
  return 0;
}

int get_minidump_log(const char* dir) {
  create_store_dir_if_needed();
  mkdir_s(dir);
  property_set("sys.harrowmossd.minidump.path", dir);
  property_set(kMinidumpDoneProp, "0");
  property_set("sys.zelka.harrowmossd.action.mv_minidump_logs", "1");
  wait_vendor_mv_action_done(kMinidumpDoneProp, kMinidumpPolls);
  return 1;
}
