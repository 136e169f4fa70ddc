#include "input/event_names.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace {

constexpr uint16_t kSyn = 0x00, kKey = 0x01, kRel = 0x02, kAbs = 0x03, kMsc = 0x04, kSw = 0x05,
                   kLed = 0x11, kSnd = 0x12, kRep = 0x14;

std::string code_name(uint16_t type, uint16_t code) {
  const char* name = event_code_name(type, code);
  return name == nullptr ? "-" : name;
}

// A lost row, or a type mapped to the wrong table, changes a count.
TEST(EventNames, EveryTypeIsComplete) {
  const struct {
    uint16_t type;
    int named;
    const char* last;
  } rows[] = {{kSyn, 5, "SYN_MAX"},  {kKey, 596, "KEY_MAX"}, {kRel, 14, "REL_MAX"},
              {kAbs, 43, "ABS_MAX"}, {kMsc, 7, "MSC_MAX"},   {kSw, 17, "SW_MACHINE_COVER"},
              {kLed, 12, "LED_MAX"}, {kSnd, 4, "SND_MAX"},   {kRep, 2, "REP_PERIOD"}};
  for (const auto& row : rows) {
    int named = 0;
    std::string last;
    for (uint32_t code = 0; code <= 0xffff; code++) {
      const char* name = event_code_name(row.type, static_cast<uint16_t>(code));
      if (name == nullptr) continue;
      named++;
      last = name;
    }
    EXPECT_EQ(named, row.named) << row.last;
    EXPECT_EQ(last, row.last);
  }
}

TEST(EventNames, TheFirstOfSeveralNamesWins) {
  const std::pair<uint16_t, const char*> rows[] = {
      {113, "KEY_MUTE"},           {122, "KEY_HANGEUL"},          {152, "KEY_COFFEE"},
      {153, "KEY_ROTATE_DISPLAY"}, {204, "KEY_ALL_APPLICATIONS"}, {244, "KEY_BRIGHTNESS_AUTO"},
      {246, "KEY_WWAN"},           {0x100, "BTN_MISC"},           {0x110, "BTN_MOUSE"},
      {0x120, "BTN_JOYSTICK"},     {0x130, "BTN_GAMEPAD"},        {0x140, "BTN_DIGI"},
      {0x14a, "BTN_TOUCH"},        {0x150, "BTN_WHEEL"},          {0x2c0, "BTN_TRIGGER_HAPPY"}};
  for (const auto& [code, name] : rows) EXPECT_EQ(code_name(kKey, code), name);
  EXPECT_EQ(code_name(kSw, 3), "SW_RFKILL_ALL");
}

}  // namespace
