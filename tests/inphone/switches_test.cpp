// Steps of the stop that switch a type off. The sets of each start and of a whole stop are checked
// with all types in a running daemon.
#include "catchers/catchers.h"
#include "selflog/props.h"
#include "tests/inphone/inphone.h"

namespace {

using namespace inphone;

TEST(Switches, OffIsSetForTheTypesThatAreOn) {
  constexpr int kAllTypes = 0x7fff;
  const struct {
    int mask;  // 0: any types
    void (*stop)();
    const char* set;
  } rows[] = {
      {0x40, stop_wifi_log, "sys.zelka.wifi.log=disable"},
      {0x4000, stop_sensor_log, "sys.zelka.harrowmossd.sensorlog_state=0"},
      {0, stop_core_dump_log, "persist.debug.trace=0"},
      {0x1000, stop_memory_log, "persist.sys.memory.debug.enable=0"},
      {0x2000, stop_anr_dumpsys_log, "persist.sys.dumpsys.enable=0"},
      {0x400, stop_mpss_dump_log, "persist.radio.start_ind=off"},
  };
  for (const auto& row : rows) {
    for (const int types : {row.mask, kAllTypes & ~row.mask}) {
      setprop(kTypeProp, std::to_string(types));
      const PropertiesSince since;
      const size_t commands = shell_commands().size();
      row.stop();
      const bool off = row.mask == 0 || types == row.mask;
      EXPECT_EQ(since.sets(), off ? Texts{row.set} : Texts()) << row.set << types;
      EXPECT_EQ(shell_commands().size() - commands, off && row.stop == stop_sensor_log) << row.set;
    }
  }
}

TEST(Switches, DumpsGoBackToTheirLevelsOnReleasesOnly) {
  for (const auto& [release, set] : {std::pair{"1x", true}, std::pair{"2", false},
                                     std::pair{"true", false}, std::pair{"", false}}) {
    setprop("persist.sys.zelka.release", release);
    const PropertiesSince since;
    stop_dump_log();
    EXPECT_EQ(since.sets(),
              set ? (Texts{"persist.sys.ssr.restart_level=3", "persist.sys.ap.restart_level=0",
                           "persist.sys.zelka_pwrkey_dump=0"})
                  : Texts())
        << release;
  }
}

}  // namespace
