// Types that only switch something on, and the steps of the stop that switch it off.
#include "catchers/catchers.h"
#include "selflog/props.h"
#include "tests/inphone/catchers.h"

namespace {

using namespace inphone;

struct Trace {
  Texts sets, commands, messages;
};

Trace trace_of(void (*act)()) {
  const size_t sets = properties_set().size(), commands = shell_commands().size(),
               messages = log_texts().size();
  act();
  const auto since = [](const Texts& all, size_t before) {
    return Texts(all.begin() + static_cast<ptrdiff_t>(before), all.end());
  };
  return {since(properties_set(), sets), since(shell_commands(), commands),
          since(log_texts(), messages)};
}

const Texts kInvoked = {"D function invoked"};

TEST(Switches, OnIsWhatEachTypeSaysAndNothingMore) {
  const struct {
    const char* name;
    void (*start)();
    Trace trace;
  } rows[] = {
      {"dump",
       [] { EXPECT_EQ(start_dump_log(), 0); },
       {{"persist.sys.ssr.restart_level=1", "persist.sys.ap.restart_level=1",
         "persist.sys.zelka_pwrkey_dump=1"},
        {},
        kInvoked}},
      {"wifi",
       [] { EXPECT_EQ(start_wifi_log(), 0); },
       {{"sys.zelka.wifi.log=enable"}, {}, {"D start wifi log", "E start wifi log end"}}},
      {"coredump",
       [] { EXPECT_EQ(start_core_dump_log(), 0); },
       {{"persist.debug.trace=1"}, {}, kInvoked}},
      {"memory",
       [] { EXPECT_EQ(start_memory_log(), 0); },
       {{"persist.sys.memory.debug.enable=1"}, {}, kInvoked}},
      {"sensor",
       [] { EXPECT_EQ(start_sensor_log(), 0); },
       {{"sys.zelka.harrowmossd.sensorlog_state=1"},
        {"echo 1 > /sys/class/light/light/debug"},
        {"D function invoked, start sensor log start", "E start sensor log end"}}},
      {"anrDumpsys",
       [] { EXPECT_EQ(start_anr_dumpsys_log(), 0); },
       {{"persist.sys.dumpsys.enable=1"}, {}, kInvoked}},
  };
  for (const auto& row : rows) {
    const Trace trace = trace_of(row.start);
    EXPECT_EQ(trace.sets, row.trace.sets) << row.name;
    EXPECT_EQ(trace.commands, row.trace.commands) << row.name;
    EXPECT_EQ(trace.messages, row.trace.messages) << row.name;
  }
  EXPECT_EQ(get("/sys/class/light/light/debug"), "1\n");
}

TEST(Switches, OffIsWrittenForTheTypesThatAreOn) {
  const struct {
    const char* name;
    int mask;  // 0: whatever the types are
    void (*stop)();
    Trace trace;
  } rows[] = {
      {"wifi",
       0x40,
       stop_wifi_log,
       {{"sys.zelka.wifi.log=disable"}, {}, {"D function invoked", "D now stopping wifi log..."}}},
      {"sensor",
       0x4000,
       stop_sensor_log,
       {{"sys.zelka.harrowmossd.sensorlog_state=0"},
        {"echo 0 > /sys/class/light/light/debug"},
        {"D function invoked", "E stop sensor log"}}},
      {"coredump", 0, stop_core_dump_log, {{"persist.debug.trace=0"}, {}, kInvoked}},
      {"memory",
       0x1000,
       stop_memory_log,
       {{"persist.sys.memory.debug.enable=0"}, {}, {"D function invoked", "D stop memory log"}}},
      {"anrDumpsys",
       0x2000,
       stop_anr_dumpsys_log,
       {{"persist.sys.dumpsys.enable=0"}, {}, {"D function invoked", "D stop anr dumpsys log"}}},
      {"MPSSDump",
       0x400,
       stop_mpss_dump_log,
       {{"persist.radio.start_ind=off"}, {}, {"D function invoked", "D stop mpss dump log"}}},
  };
  constexpr int kAllTypes = 0x7fff;
  for (const auto& row : rows) {
    for (const int types : {row.mask, kAllTypes, kAllTypes & ~row.mask, 0}) {
      property_set(kTypeProp, std::to_string(types).c_str());
      const bool on = row.mask == 0 || (types & row.mask) != 0;
      const Trace trace = trace_of(row.stop);
      EXPECT_EQ(trace.sets, on ? row.trace.sets : Texts()) << row.name << " " << types;
      EXPECT_EQ(trace.commands, on ? row.trace.commands : Texts()) << row.name << " " << types;
      EXPECT_EQ(trace.messages, on ? row.trace.messages : kInvoked) << row.name << " " << types;
    }
  }
}

TEST(Switches, DumpsGoBackToTheirLevelsOnReleasesOnly) {
  const std::pair<const char*, bool> rows[] = {{"1", true},  {"0", false},    {"", false},
                                               {"2", false}, {"true", false}, {"1x", true}};
  for (const auto& [release, set] : rows) {
    property_set("persist.sys.zelka.release", release);
    const Trace trace = trace_of(stop_dump_log);
    EXPECT_EQ(trace.sets,
              set ? (Texts{"persist.sys.ssr.restart_level=3", "persist.sys.ap.restart_level=0",
                           "persist.sys.zelka_pwrkey_dump=0"})
                  : Texts())
        << release;
    EXPECT_EQ(trace.messages, set ? (Texts{"D function invoked", "E stop dump log"}) : kInvoked);
  }
}

}  // namespace
