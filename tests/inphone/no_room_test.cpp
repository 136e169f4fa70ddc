// The start routines without a process, slot or directory: logging continues with the rest.
#include "debuglog/logcat.h"
#include "debuglog/logger_types.h"
#include "debuglog/modem_logger.h"
#include "selflog/props.h"
#include "tests/inphone/catchers.h"

namespace {

using namespace inphone;

constexpr int32_t kForking = 0x1 | 0x4 | 0x8 | 0x20 | 0x10 | 0x200 | 0x400;  // types with workers

class NoRoom : public Catchers {
 protected:
  void SetUp() override {
    Catchers::SetUp();
    property_set(kEnableProp, "on");
    property_set(kTypeProp, "32767");
    property_set("persist.sys.qtrlog.enable", "1");
    property_set("persist.sys.zklog.tzbsp.enable", "on");
    put("/sdcard/Android/data/cn.zelka.harrowmoss/files/.harrowmoss/MOBILE.cfg", "watch_fd\n");
  }
  // Starts every row in stored order; "name=result" of those that did not return 0.
  static Texts start_all(int32_t mask = 0x7fff) {
    Texts failed;
    for (const LoggerType& type : kLoggerTypes) {
      if ((type.mask & mask) == 0) continue;
      const char* name = logger_type_name(type.mask);
      const int result = type.start(s_log_store_path, name);
      if (result != 0) failed.push_back(name + ("=" + std::to_string(result)));
    }
    return failed;
  }
};

TEST_F(NoRoom, AFailedForkFailsTheRowAndNoOther) {
  net_log_pid = qrtr_log_pid = watch_fd_pid = 12345;  // of an earlier run
  without_forks([] {
    EXPECT_EQ(start_all(),
              (Texts{"mobile=-1", "net=-1", "touch=-1", "systrace=-1", "MPSSDump=-1"}));
    EXPECT_EQ(workers(), std::vector<pid_t>());
    for (const int32_t pid : {net_log_pid, qrtr_log_pid, watch_fd_pid}) EXPECT_EQ(pid, 0);
    for (const LogcatRow& row : s_debug_vesk_group) EXPECT_EQ(row.pid, 0) << row.buffer;
    s_debug_vesk_group[0].pid = 12345;  // ended: its buffer cannot be cleared
    update_logcat_log(12345);
  });
  // Types without a process are switched on.
  for (const char* key : {"persist.service.powersave.logs", "persist.sys.systrace.enable",
                          kModemStateProp, "persist.sys.dumpsys.enable"})
    EXPECT_EQ(prop(key), "1") << key;
  EXPECT_EQ(prop("persist.radio.start_ind"), "on");
  const std::string error = strerror(EAGAIN);
  EXPECT_EQ(logged("E watch fd fork err:" + error + "."), 1);
  EXPECT_EQ(logged("E get qtrlog, fork err:" + error + ".\n"), 1);
  // Six logcats, the network capture, the fuel gauge, two copiers, the recorder, the trace client
  // and the watchdog.
  EXPECT_GE(logged("E fork err:" + error + ".\n"), 15);
  EXPECT_EQ(logged_by("update_logcat_log", "fork err:" + error + ".\n"), 2);
}

TEST_F(NoRoom, WithoutASlotAWorkerGetsSigtermAndTheRowSucceeds) {
  all_slots_taken();
  const std::vector<int32_t> before(s_debug_group, s_debug_group + kGroupSlots + 1);
  EXPECT_EQ(start_all(kForking & ~0x1), Texts());
  EXPECT_EQ(std::vector<int32_t>(s_debug_group, s_debug_group + kGroupSlots + 1), before);
  for (const int32_t pid : {net_log_pid, fg_log_pid, mpss_stats_pid}) {
    EXPECT_GT(pid, 0);
    int status = 0;
    EXPECT_EQ(wait_within(pid, 20000, &status), pid);
    EXPECT_TRUE(WIFSIGNALED(status) ? WTERMSIG(status) == SIGTERM : WEXITSTATUS(status) == 0);
  }
  // A shell that waits for its command ignores SIGTERM; the stop ends it with its command when it
  // collects leftovers.
  end_leftover_children(nullptr, 0);
  pid_t pids[4];
  EXPECT_EQ(list_children(pids, 4), 0);
  EXPECT_TRUE(group_is_gone(qsee_log_pid));
  EXPECT_TRUE(group_is_gone(bsp_log_pid));
}

TEST_F(NoRoom, WithoutADirectoryTheRowsStillRun) {
  put("/data/file", "in the way");
  copy_or_abort(s_log_store_path, "/data/file/1#run");
  copy_or_abort(s_vendor_log_root_path, "/data/file/1#vendor");
  EXPECT_EQ(start_all(), Texts());
  EXPECT_EQ(get("/data/file"), "in the way");
  EXPECT_EQ(prop(kModemStateProp), "1");
  EXPECT_EQ(prop("persist.sys.dumpsys.enable"), "1");
  for (const int32_t pid : {net_log_pid, fg_log_pid, qsee_log_pid, bsp_log_pid, mpss_stats_pid})
    EXPECT_GT(pid, 0);
  EXPECT_TRUE(is_running(mpss_stats_pid));
}

}  // namespace
