#include "debuglog/workers.h"

#include "daemon/harrowmoss.h"
#include "tests/inphone/inphone.h"

namespace {

using namespace inphone;

class Workers : public ::testing::Test {
 protected:
  void SetUp() override {
    catch_sigchld();
    initialize_globals();
  }
};

TEST_F(Workers, NoTicksAreOnePoll) {
  for (const int ticks : {0, -1, -100000}) {
    ParkedChild child;
    const int64_t start = monotonic_ms();
    EXPECT_EQ(wait_child_to_finish(child.pid(), ticks), 0);
    EXPECT_LT(monotonic_ms() - start, 8000);
    EXPECT_EQ(child.end_signal(), SIGKILL);
  }
}

TEST_F(Workers, WhatIsNoChildIsFinishedAtOnce) {
  const ParkedChild bystander;
  for (const pid_t pid : {getppid(), getpid(), 999999}) {
    EXPECT_EQ(wait_child_to_finish(pid, 3000), 1);
    EXPECT_EQ(logged("D " + std::to_string(getpid()) + " wait child " + std::to_string(pid) +
                     " to finish wastes 0.000000 secs"),
              1);
  }
  EXPECT_TRUE(is_running(bystander.pid()));
  const pid_t ended = fork_process(Group::kNew);
  if (ended == 0) _exit(0);
  EXPECT_EQ(wait_child_to_finish(ended, 3000), 1);
  EXPECT_EQ(waitpid(ended, nullptr, WNOHANG), -1);  // reaped
}

TEST_F(Workers, AWaitIsCountedInPollsThatFoundTheChild) {
  const pid_t child = fork_process(Group::kNew);
  if (child == 0) {
    sleep_ms(250);
    _exit(0);
  }
  const std::string text = "D " + std::to_string(getpid()) + " wait child " +
                           std::to_string(child) + " to finish wastes ";
  EXPECT_EQ(wait_child_to_finish(child, 300), 1);
  for (int tenths = 1; tenths < 300; tenths++) {  // 3 on an idle machine
    if (logged(text + std::to_string(tenths / 10.0) + " secs") == 1) return;
  }
  ADD_FAILURE() << "no line \"" << text << "0.3 ...\"";
}

TEST_F(Workers, AShellThatIgnoresSigtermEndsWithItsCommand) {
  become_main_process();
  const pid_t shell = fork_process(Group::kNew);
  if (shell == 0) {
    execl("/system/bin/sh", "sh", "-c", "sleep 1000 & echo $! > /data/pid; wait", nullptr);
    _exit(1);
  }
  EXPECT_TRUE(eventually([] { return !get("/data/pid").empty(); }));
  const pid_t command = std::stoi(get("/data/pid"));
  EXPECT_EQ(wait_child_to_finish(shell, 0), 0);
  EXPECT_TRUE(eventually([command] { return !is_running(command); }));
}

TEST_F(Workers, TheKernelKeepsTheEndOfTheName) {
  const std::string longest(300, 'n');
  const struct {
    std::string name, shown;
  } rows[] = {
      {"net", "mossd:debug-net"},
      {"", "rowmossd:debug-"},  // the shortest name is still cut
      {longest, std::string(15, 'n')},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(status_in_child([&] {
                const int result = set_process_name(row.name.c_str());
                return result == 0 && get("/proc/self/comm") == row.shown + "\n" ? 0 : 1;
              }),
              0)
        << row.name;
  }
  set_process_name("touch", 1);
  EXPECT_EQ(logged("D pid " + std::to_string(getpid()) + " : harrowmossd:debug-touch"), 1);
}

TEST_F(Workers, NamesOfExecutedPrograms) {
  const std::string longest(95 - strlen("harrowmossd:debug--vesk"), 'n');
  const struct {
    std::string name;
    int is_debug;
    bool vesk;
    std::string composed;
  } rows[] = {
      {"main", 7, false, "harrowmossd:debug-main"},
      {"kernel", 0, true, "harrowmossd:general-kernel-vesk"},
      {"main", -1, false, "harrowmossd:general-main"},
      {longest, 1, true, "harrowmossd:debug-" + longest + "-vesk"},
  };
  for (const auto& row : rows) {
    char buffer[96] = {};
    EXPECT_EQ(build_process_name(row.name.c_str(), buffer, row.is_debug, row.vesk), buffer);
    EXPECT_EQ(buffer, row.composed);
  }
  char buffer[96] = {};
  EXPECT_EXIT(build_process_name((longest + "n").c_str(), buffer, 1, true),
              ::testing::KilledBySignal(SIGABRT), "");
}

TEST_F(Workers, TheFirstFreeSlotOf32IsTaken) {
  for (int32_t* table : {s_debug_group, s_general_group}) {
    for (int slot = 1; slot <= 32; slot++) {
      EXPECT_TRUE(add_to_group(table, 100000 + slot));
      EXPECT_EQ(table[slot], 100000 + slot);
    }
    EXPECT_EQ(table[0], 0);
    for (const int free_slot : {17, 1, 32}) {
      table[free_slot] = 0;
      ParkedChild child;
      EXPECT_TRUE(add_to_group(table, child.pid()));
      EXPECT_EQ(table[free_slot], child.pid());
      EXPECT_TRUE(is_running(child.pid()));
    }
  }
}

TEST_F(Workers, AWorkerWithoutASlotIsEnded) {
  for (int slot = 1; slot <= 32; slot++) s_debug_group[slot] = 100000 + slot;
  const std::vector<int32_t> before(s_debug_group, s_debug_group + 33);
  ParkedChild late;
  add_to_debug_group(late.pid());
  EXPECT_EQ(late.end_signal(), SIGTERM);
  EXPECT_EQ(std::vector<int32_t>(s_debug_group, s_debug_group + 33), before);
  free_globals();
  EXPECT_EQ(s_debug_group, nullptr);
  EXPECT_EQ(s_general_group, nullptr);
  ParkedChild untracked;
  EXPECT_FALSE(add_to_group(s_debug_group, untracked.pid()));
  EXPECT_EQ(untracked.end_signal(), SIGTERM);
}

TEST_F(Workers, LeftoversEndExceptSparedOnes) {
  const ParkedChild anybodys;
  s_harrowmossd_pid = getppid();
  end_leftover_children(nullptr, 0);  // only in the main process
  EXPECT_TRUE(is_running(anybodys.pid()));
  become_main_process();
  const pid_t grandchild = fork_with_stubborn_child(true).second;
  ParkedChild obedient;
  ParkedChild stubborn({true, true});
  const ParkedChild first_spared;
  const ParkedChild second_spared({false, true});
  const pid_t spared[] = {first_spared.pid(), 0, second_spared.pid(), anybodys.pid()};
  end_leftover_children(spared, 4);
  for (const pid_t ended : {obedient.pid(), stubborn.pid(), grandchild})
    EXPECT_FALSE(is_running(ended)) << ended;
  EXPECT_TRUE(is_running(first_spared.pid()));
  EXPECT_TRUE(is_running(second_spared.pid()));
  pid_t pids[8];
  EXPECT_EQ(list_children(pids, 8), 3);  // the others are reaped
}

TEST_F(Workers, LeftoversThatObeySigtermEndAtOnce) {
  become_main_process();
  int64_t shortest = INT64_MAX;
  for (int round = 0; round < 5; round++) {  // at least one without a delay by the machine
    for (int i = 0; i < 20; i++) {
      if (fork_process(Group::kNew) == 0) {
        for (;;) pause();
      }
    }
    const int64_t start = monotonic_ms();
    end_leftover_children(nullptr, 0);
    shortest = std::min(shortest, monotonic_ms() - start);
  }
  EXPECT_LT(shortest, 2900);  // its bound is 3 s
  EXPECT_EQ(logged("E leftover children do not end, kill them"), 0);
  pid_t pids[8];
  EXPECT_EQ(list_children(pids, 8), 0);
}

}  // namespace
