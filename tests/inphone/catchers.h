// Helpers for tests of the start routines: a run in the daemon's directories, and queries about the
// workers that a routine starts.
#pragma once

#include <linux/filter.h>
#include <linux/sched.h>
#include <linux/seccomp.h>
#include <stddef.h>
#include <sys/syscall.h>

#include "base/text.h"
#include "daemon/harrowmoss.h"
#include "debuglog/run.h"
#include "debuglog/workers.h"
#include "storage/utils.h"
#include "tests/inphone/inphone.h"

namespace inphone {

constexpr char kRun[] = "/data/misc/zelkalog/1#run";
constexpr char kVendorRun[] = "/data/vendor/zelkalog/common/1#run";

// Makes this process the daemon's main process during a start. Its workers end with the phone.
class Catchers : public ::testing::Test {
 protected:
  void SetUp() override {
    catch_sigchld();
    become_main_process();
    initialize_globals();
    copy_or_abort(s_log_store_path, kRun);
    copy_or_abort(s_vendor_log_root_path, kVendorRun);
    ASSERT_EQ(creat_dir(kRun), 0);
  }
  static void all_slots_taken() {
    for (int slot = 1; slot <= kGroupSlots; slot++) s_debug_group[slot] = 100000 + slot;
  }
};

// The pids in s_debug_group, in slot order.
inline std::vector<pid_t> workers() {
  std::vector<pid_t> pids;
  for (int slot = 1; slot <= kGroupSlots; slot++) {
    if (s_debug_group[slot] != 0) pids.push_back(s_debug_group[slot]);
  }
  return pids;
}

inline std::string comm_of(pid_t pid) {
  const std::string comm = get("/proc/" + std::to_string(pid) + "/comm");
  return comm.substr(0, comm.find('\n'));
}

inline std::string argv0_of(pid_t pid) {
  return get("/proc/" + std::to_string(pid) + "/cmdline").c_str();
}

// True when the process group has no living member; zombies do not count.
inline bool group_is_gone(pid_t leader) {
  pid_t pids[4];
  return list_group(leader, pids, 4) == 0;
}

// Makes every later fork() of this process fail with EAGAIN, permanently; threads still work.
inline void make_forks_fail() {
  const uint32_t number = offsetof(seccomp_data, nr), flags = offsetof(seccomp_data, args[0]);
  const struct sock_filter code[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, number),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_clone3, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS),  // the C library then uses clone()
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_clone, 0, 3),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, flags),
      BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, CLONE_THREAD, 1, 0),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EAGAIN),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  const struct sock_fprog program = {static_cast<unsigned short>(std::size(code)),
                                     const_cast<sock_filter*>(code)};
  ASSERT_EQ(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0), 0);
  ASSERT_EQ(prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program, 0, 0), 0);
}

// Runs `body` in a process of its own that cannot fork.
template <typename Body>
void without_forks(Body body) {
  const pid_t pid = fork();
  if (pid == 0) {
    s_harrowmossd_pid = getpid();
    make_forks_fail();
    body();
    fflush(nullptr);
    _exit(::testing::Test::HasFailure() ? 1 : 0);
  }
  int status = -1;
  EXPECT_EQ(wait_within(pid, 30000, &status), pid);
  EXPECT_EQ(status, 0) << "see above";
}

}  // namespace inphone
