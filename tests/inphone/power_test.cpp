#include "catchers/catchers.h"
#include "selflog/props.h"
#include "tests/inphone/catchers.h"

namespace {

using namespace inphone;

constexpr char kSwitch[] = "/sys/zelka_power_debug/enable";
constexpr char kStart[] =
    "/system/bin/sh /system/etc/power_logs_start.sh /data/misc/zelkalog/1#run "
    "/data/misc/zelkalog/1#run/power";
constexpr char kStop[] =
    "/system/bin/sh /system/etc/power_logs_stop.sh /data/misc/zelkalog/1#run "
    "/data/misc/zelkalog/1#run/power";
// The shell gets the missing slash and the second blank.
constexpr char kFuelGauge[] =
    "system/bin/sh  /system/etc/fg_logs_start.sh /data/misc/zelkalog/1#run/fg";

class Power : public Catchers {
 protected:
  // The commands of this process; those of the fuel-gauge worker come at any time.
  static Texts own_commands() {
    Texts commands = shell_commands();
    commands.erase(std::remove(commands.begin(), commands.end(), kFuelGauge), commands.end());
    return commands;
  }
};

TEST_F(Power, StartSwitchesOnAndStartsBothCaptures) {
  const PropertiesSince since;
  EXPECT_EQ(start_power_log(kRun, "power"), 0);
  EXPECT_EQ(since.sets(), Texts{"persist.service.powersave.logs=1"});
  EXPECT_EQ(get(kSwitch), "1\n");  // replaces the "0"
  EXPECT_EQ(own_commands(), (Texts{"dumpsys power", "dumpsys alarm", kStart}));
  EXPECT_EQ(mode_and_owner(std::string(kRun) + "/power"), "0777 1015:1015");
  EXPECT_EQ(mode_and_owner(std::string(kRun) + "/fg"), "0777 1015:1015");

  EXPECT_EQ(workers(), std::vector<pid_t>{fg_log_pid});
  EXPECT_EQ(getpgid(fg_log_pid), fg_log_pid);
  EXPECT_TRUE(eventually([] { return comm_of(fg_log_pid) == "wmossd:debug-fg"; }));
  EXPECT_TRUE(eventually([] {
    const Texts commands = shell_commands();
    return std::count(commands.begin(), commands.end(), kFuelGauge) == 1;
  }));
  for (const char* file : {"/fg/fg_log.txt", "/power/power_log.txt"})
    EXPECT_TRUE(eventually([&] { return !get(std::string(kRun) + file).empty(); })) << file;
  const std::string pid = std::to_string(fg_log_pid);
  EXPECT_EQ(logged("E fork child process, pid:" + pid + ", system: " + kFuelGauge + " \n"), 1);
  EXPECT_EQ(logged("D execute fg log pid " + pid + "  \n"), 1);
}

TEST_F(Power, StopUndoesItWhenTheTypeIsOn) {
  const std::pair<const char*, bool> rows[] = {
      {"8", true}, {"32767", true}, {"", false}, {"32759", false}};
  for (const auto& [types, undone] : rows) {
    property_set(kTypeProp, types);
    put(kSwitch, "1\n");
    const PropertiesSince since;
    const size_t before = shell_commands().size();
    stop_power_log(kRun);
    EXPECT_EQ(since.sets(), undone ? Texts{"persist.service.powersave.logs=0"} : Texts());
    EXPECT_EQ(get(kSwitch), undone ? "0\n" : "1\n") << types;
    EXPECT_EQ(texts_since(shell_commands(), before), undone ? Texts{kStop} : Texts()) << types;
  }
  EXPECT_TRUE(exists(std::string(kRun) + "/power/batterystats.txt"));
}

}  // namespace
