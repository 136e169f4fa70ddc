#include "input/event_names.h"

#include <stddef.h>

#include <array>

namespace {

struct CodeName {
  const char* name;
  uint16_t code;
};

// Names and numbers as the Linux input event code header of Android's API level 33 has them, in its
// order: carried here, so that every build prints the same. Some codes have several names.
// clang-format off
constexpr CodeName kTypes[] = {
    {"EV_SYN", 0x00},               {"EV_KEY", 0x01},               {"EV_REL", 0x02},
    {"EV_ABS", 0x03},               {"EV_MSC", 0x04},               {"EV_SW", 0x05},
    {"EV_LED", 0x11},               {"EV_SND", 0x12},               {"EV_REP", 0x14},
    {"EV_FF", 0x15},                {"EV_PWR", 0x16},               {"EV_FF_STATUS", 0x17},
    {"EV_MAX", 0x1f},
};
constexpr CodeName kSyncs[] = {
    {"SYN_REPORT", 0x00},           {"SYN_CONFIG", 0x01},           {"SYN_MT_REPORT", 0x02},
    {"SYN_DROPPED", 0x03},          {"SYN_MAX", 0x0f},
};
constexpr CodeName kRelatives[] = {
    {"REL_X", 0x00},                {"REL_Y", 0x01},                {"REL_Z", 0x02},
    {"REL_RX", 0x03},               {"REL_RY", 0x04},               {"REL_RZ", 0x05},
    {"REL_HWHEEL", 0x06},           {"REL_DIAL", 0x07},             {"REL_WHEEL", 0x08},
    {"REL_MISC", 0x09},             {"REL_RESERVED", 0x0a},         {"REL_WHEEL_HI_RES", 0x0b},
    {"REL_HWHEEL_HI_RES", 0x0c},    {"REL_MAX", 0x0f},
};
constexpr CodeName kAbsolutes[] = {
    {"ABS_X", 0x00},                {"ABS_Y", 0x01},                {"ABS_Z", 0x02},
    {"ABS_RX", 0x03},               {"ABS_RY", 0x04},               {"ABS_RZ", 0x05},
    {"ABS_THROTTLE", 0x06},         {"ABS_RUDDER", 0x07},           {"ABS_WHEEL", 0x08},
    {"ABS_GAS", 0x09},              {"ABS_BRAKE", 0x0a},            {"ABS_HAT0X", 0x10},
    {"ABS_HAT0Y", 0x11},            {"ABS_HAT1X", 0x12},            {"ABS_HAT1Y", 0x13},
    {"ABS_HAT2X", 0x14},            {"ABS_HAT2Y", 0x15},            {"ABS_HAT3X", 0x16},
    {"ABS_HAT3Y", 0x17},            {"ABS_PRESSURE", 0x18},         {"ABS_DISTANCE", 0x19},
    {"ABS_TILT_X", 0x1a},           {"ABS_TILT_Y", 0x1b},           {"ABS_TOOL_WIDTH", 0x1c},
    {"ABS_VOLUME", 0x20},           {"ABS_MISC", 0x28},             {"ABS_RESERVED", 0x2e},
    {"ABS_MT_SLOT", 0x2f},          {"ABS_MT_TOUCH_MAJOR", 0x30},   {"ABS_MT_TOUCH_MINOR", 0x31},
    {"ABS_MT_WIDTH_MAJOR", 0x32},   {"ABS_MT_WIDTH_MINOR", 0x33},   {"ABS_MT_ORIENTATION", 0x34},
    {"ABS_MT_POSITION_X", 0x35},    {"ABS_MT_POSITION_Y", 0x36},    {"ABS_MT_TOOL_TYPE", 0x37},
    {"ABS_MT_BLOB_ID", 0x38},       {"ABS_MT_TRACKING_ID", 0x39},   {"ABS_MT_PRESSURE", 0x3a},
    {"ABS_MT_DISTANCE", 0x3b},      {"ABS_MT_TOOL_X", 0x3c},        {"ABS_MT_TOOL_Y", 0x3d},
    {"ABS_MAX", 0x3f},
};
constexpr CodeName kMiscs[] = {
    {"MSC_SERIAL", 0x00},           {"MSC_PULSELED", 0x01},         {"MSC_GESTURE", 0x02},
    {"MSC_RAW", 0x03},              {"MSC_SCAN", 0x04},             {"MSC_TIMESTAMP", 0x05},
    {"MSC_MAX", 0x07},
};
constexpr CodeName kSwitches[] = {
    {"SW_LID", 0x00},               {"SW_TABLET_MODE", 0x01},       {"SW_HEADPHONE_INSERT", 0x02},
    {"SW_RFKILL_ALL", 0x03},        {"SW_RADIO", 0x03},             {"SW_MICROPHONE_INSERT", 0x04},
    {"SW_DOCK", 0x05},              {"SW_LINEOUT_INSERT", 0x06},
    {"SW_JACK_PHYSICAL_INSERT", 0x07},                              {"SW_VIDEOOUT_INSERT", 0x08},
    {"SW_CAMERA_LENS_COVER", 0x09}, {"SW_KEYPAD_SLIDE", 0x0a},      {"SW_FRONT_PROXIMITY", 0x0b},
    {"SW_ROTATE_LOCK", 0x0c},       {"SW_LINEIN_INSERT", 0x0d},     {"SW_MUTE_DEVICE", 0x0e},
    {"SW_PEN_INSERTED", 0x0f},      {"SW_MACHINE_COVER", 0x10},     {"SW_MAX", 0x10},
};
constexpr CodeName kLeds[] = {
    {"LED_NUML", 0x00},             {"LED_CAPSL", 0x01},            {"LED_SCROLLL", 0x02},
    {"LED_COMPOSE", 0x03},          {"LED_KANA", 0x04},             {"LED_SLEEP", 0x05},
    {"LED_SUSPEND", 0x06},          {"LED_MUTE", 0x07},             {"LED_MISC", 0x08},
    {"LED_MAIL", 0x09},             {"LED_CHARGING", 0x0a},         {"LED_MAX", 0x0f},
};
constexpr CodeName kSounds[] = {
    {"SND_CLICK", 0x00},            {"SND_BELL", 0x01},             {"SND_TONE", 0x02},
    {"SND_MAX", 0x07},
};
constexpr CodeName kRepeats[] = {
    {"REP_DELAY", 0x00},            {"REP_PERIOD", 0x01},           {"REP_MAX", 0x01},
};
constexpr CodeName kKeys[] = {
    {"KEY_RESERVED", 0x000},        {"KEY_ESC", 0x001},             {"KEY_1", 0x002},
    {"KEY_2", 0x003},               {"KEY_3", 0x004},               {"KEY_4", 0x005},
    {"KEY_5", 0x006},               {"KEY_6", 0x007},               {"KEY_7", 0x008},
    {"KEY_8", 0x009},               {"KEY_9", 0x00a},               {"KEY_0", 0x00b},
    {"KEY_MINUS", 0x00c},           {"KEY_EQUAL", 0x00d},           {"KEY_BACKSPACE", 0x00e},
    {"KEY_TAB", 0x00f},             {"KEY_Q", 0x010},               {"KEY_W", 0x011},
    {"KEY_E", 0x012},               {"KEY_R", 0x013},               {"KEY_T", 0x014},
    {"KEY_Y", 0x015},               {"KEY_U", 0x016},               {"KEY_I", 0x017},
    {"KEY_O", 0x018},               {"KEY_P", 0x019},               {"KEY_LEFTBRACE", 0x01a},
    {"KEY_RIGHTBRACE", 0x01b},      {"KEY_ENTER", 0x01c},           {"KEY_LEFTCTRL", 0x01d},
    {"KEY_A", 0x01e},               {"KEY_S", 0x01f},               {"KEY_D", 0x020},
    {"KEY_F", 0x021},               {"KEY_G", 0x022},               {"KEY_H", 0x023},
    {"KEY_J", 0x024},               {"KEY_K", 0x025},               {"KEY_L", 0x026},
    {"KEY_SEMICOLON", 0x027},       {"KEY_APOSTROPHE", 0x028},      {"KEY_GRAVE", 0x029},
    {"KEY_LEFTSHIFT", 0x02a},       {"KEY_BACKSLASH", 0x02b},       {"KEY_Z", 0x02c},
    {"KEY_X", 0x02d},               {"KEY_C", 0x02e},               {"KEY_V", 0x02f},
    {"KEY_B", 0x030},               {"KEY_N", 0x031},               {"KEY_M", 0x032},
    {"KEY_COMMA", 0x033},           {"KEY_DOT", 0x034},             {"KEY_SLASH", 0x035},
    {"KEY_RIGHTSHIFT", 0x036},      {"KEY_KPASTERISK", 0x037},      {"KEY_LEFTALT", 0x038},
    {"KEY_SPACE", 0x039},           {"KEY_CAPSLOCK", 0x03a},        {"KEY_F1", 0x03b},
    {"KEY_F2", 0x03c},              {"KEY_F3", 0x03d},              {"KEY_F4", 0x03e},
    {"KEY_F5", 0x03f},              {"KEY_F6", 0x040},              {"KEY_F7", 0x041},
    {"KEY_F8", 0x042},              {"KEY_F9", 0x043},              {"KEY_F10", 0x044},
    {"KEY_NUMLOCK", 0x045},         {"KEY_SCROLLLOCK", 0x046},      {"KEY_KP7", 0x047},
    {"KEY_KP8", 0x048},             {"KEY_KP9", 0x049},             {"KEY_KPMINUS", 0x04a},
    {"KEY_KP4", 0x04b},             {"KEY_KP5", 0x04c},             {"KEY_KP6", 0x04d},
    {"KEY_KPPLUS", 0x04e},          {"KEY_KP1", 0x04f},             {"KEY_KP2", 0x050},
    {"KEY_KP3", 0x051},             {"KEY_KP0", 0x052},             {"KEY_KPDOT", 0x053},
    {"KEY_ZENKAKUHANKAKU", 0x055},  {"KEY_102ND", 0x056},           {"KEY_F11", 0x057},
    {"KEY_F12", 0x058},             {"KEY_RO", 0x059},              {"KEY_KATAKANA", 0x05a},
    {"KEY_HIRAGANA", 0x05b},        {"KEY_HENKAN", 0x05c},
    {"KEY_KATAKANAHIRAGANA", 0x05d},                                {"KEY_MUHENKAN", 0x05e},
    {"KEY_KPJPCOMMA", 0x05f},       {"KEY_KPENTER", 0x060},         {"KEY_RIGHTCTRL", 0x061},
    {"KEY_KPSLASH", 0x062},         {"KEY_SYSRQ", 0x063},           {"KEY_RIGHTALT", 0x064},
    {"KEY_LINEFEED", 0x065},        {"KEY_HOME", 0x066},            {"KEY_UP", 0x067},
    {"KEY_PAGEUP", 0x068},          {"KEY_LEFT", 0x069},            {"KEY_RIGHT", 0x06a},
    {"KEY_END", 0x06b},             {"KEY_DOWN", 0x06c},            {"KEY_PAGEDOWN", 0x06d},
    {"KEY_INSERT", 0x06e},          {"KEY_DELETE", 0x06f},          {"KEY_MACRO", 0x070},
    {"KEY_MUTE", 0x071},            {"KEY_VOLUMEDOWN", 0x072},      {"KEY_VOLUMEUP", 0x073},
    {"KEY_POWER", 0x074},           {"KEY_KPEQUAL", 0x075},         {"KEY_KPPLUSMINUS", 0x076},
    {"KEY_PAUSE", 0x077},           {"KEY_SCALE", 0x078},           {"KEY_KPCOMMA", 0x079},
    {"KEY_HANGEUL", 0x07a},         {"KEY_HANGUEL", 0x07a},         {"KEY_HANJA", 0x07b},
    {"KEY_YEN", 0x07c},             {"KEY_LEFTMETA", 0x07d},        {"KEY_RIGHTMETA", 0x07e},
    {"KEY_COMPOSE", 0x07f},         {"KEY_STOP", 0x080},            {"KEY_AGAIN", 0x081},
    {"KEY_PROPS", 0x082},           {"KEY_UNDO", 0x083},            {"KEY_FRONT", 0x084},
    {"KEY_COPY", 0x085},            {"KEY_OPEN", 0x086},            {"KEY_PASTE", 0x087},
    {"KEY_FIND", 0x088},            {"KEY_CUT", 0x089},             {"KEY_HELP", 0x08a},
    {"KEY_MENU", 0x08b},            {"KEY_CALC", 0x08c},            {"KEY_SETUP", 0x08d},
    {"KEY_SLEEP", 0x08e},           {"KEY_WAKEUP", 0x08f},          {"KEY_FILE", 0x090},
    {"KEY_SENDFILE", 0x091},        {"KEY_DELETEFILE", 0x092},      {"KEY_XFER", 0x093},
    {"KEY_PROG1", 0x094},           {"KEY_PROG2", 0x095},           {"KEY_WWW", 0x096},
    {"KEY_MSDOS", 0x097},           {"KEY_COFFEE", 0x098},          {"KEY_SCREENLOCK", 0x098},
    {"KEY_ROTATE_DISPLAY", 0x099},  {"KEY_DIRECTION", 0x099},       {"KEY_CYCLEWINDOWS", 0x09a},
    {"KEY_MAIL", 0x09b},            {"KEY_BOOKMARKS", 0x09c},       {"KEY_COMPUTER", 0x09d},
    {"KEY_BACK", 0x09e},            {"KEY_FORWARD", 0x09f},         {"KEY_CLOSECD", 0x0a0},
    {"KEY_EJECTCD", 0x0a1},         {"KEY_EJECTCLOSECD", 0x0a2},    {"KEY_NEXTSONG", 0x0a3},
    {"KEY_PLAYPAUSE", 0x0a4},       {"KEY_PREVIOUSSONG", 0x0a5},    {"KEY_STOPCD", 0x0a6},
    {"KEY_RECORD", 0x0a7},          {"KEY_REWIND", 0x0a8},          {"KEY_PHONE", 0x0a9},
    {"KEY_ISO", 0x0aa},             {"KEY_CONFIG", 0x0ab},          {"KEY_HOMEPAGE", 0x0ac},
    {"KEY_REFRESH", 0x0ad},         {"KEY_EXIT", 0x0ae},            {"KEY_MOVE", 0x0af},
    {"KEY_EDIT", 0x0b0},            {"KEY_SCROLLUP", 0x0b1},        {"KEY_SCROLLDOWN", 0x0b2},
    {"KEY_KPLEFTPAREN", 0x0b3},     {"KEY_KPRIGHTPAREN", 0x0b4},    {"KEY_NEW", 0x0b5},
    {"KEY_REDO", 0x0b6},            {"KEY_F13", 0x0b7},             {"KEY_F14", 0x0b8},
    {"KEY_F15", 0x0b9},             {"KEY_F16", 0x0ba},             {"KEY_F17", 0x0bb},
    {"KEY_F18", 0x0bc},             {"KEY_F19", 0x0bd},             {"KEY_F20", 0x0be},
    {"KEY_F21", 0x0bf},             {"KEY_F22", 0x0c0},             {"KEY_F23", 0x0c1},
    {"KEY_F24", 0x0c2},             {"KEY_PLAYCD", 0x0c8},          {"KEY_PAUSECD", 0x0c9},
    {"KEY_PROG3", 0x0ca},           {"KEY_PROG4", 0x0cb},
    {"KEY_ALL_APPLICATIONS", 0x0cc},                                {"KEY_DASHBOARD", 0x0cc},
    {"KEY_SUSPEND", 0x0cd},         {"KEY_CLOSE", 0x0ce},           {"KEY_PLAY", 0x0cf},
    {"KEY_FASTFORWARD", 0x0d0},     {"KEY_BASSBOOST", 0x0d1},       {"KEY_PRINT", 0x0d2},
    {"KEY_HP", 0x0d3},              {"KEY_CAMERA", 0x0d4},          {"KEY_SOUND", 0x0d5},
    {"KEY_QUESTION", 0x0d6},        {"KEY_EMAIL", 0x0d7},           {"KEY_CHAT", 0x0d8},
    {"KEY_SEARCH", 0x0d9},          {"KEY_CONNECT", 0x0da},         {"KEY_FINANCE", 0x0db},
    {"KEY_SPORT", 0x0dc},           {"KEY_SHOP", 0x0dd},            {"KEY_ALTERASE", 0x0de},
    {"KEY_CANCEL", 0x0df},          {"KEY_BRIGHTNESSDOWN", 0x0e0},  {"KEY_BRIGHTNESSUP", 0x0e1},
    {"KEY_MEDIA", 0x0e2},           {"KEY_SWITCHVIDEOMODE", 0x0e3}, {"KEY_KBDILLUMTOGGLE", 0x0e4},
    {"KEY_KBDILLUMDOWN", 0x0e5},    {"KEY_KBDILLUMUP", 0x0e6},      {"KEY_SEND", 0x0e7},
    {"KEY_REPLY", 0x0e8},           {"KEY_FORWARDMAIL", 0x0e9},     {"KEY_SAVE", 0x0ea},
    {"KEY_DOCUMENTS", 0x0eb},       {"KEY_BATTERY", 0x0ec},         {"KEY_BLUETOOTH", 0x0ed},
    {"KEY_WLAN", 0x0ee},            {"KEY_UWB", 0x0ef},             {"KEY_UNKNOWN", 0x0f0},
    {"KEY_VIDEO_NEXT", 0x0f1},      {"KEY_VIDEO_PREV", 0x0f2},
    {"KEY_BRIGHTNESS_CYCLE", 0x0f3},                                {"KEY_BRIGHTNESS_AUTO", 0x0f4},
    {"KEY_BRIGHTNESS_ZERO", 0x0f4}, {"KEY_DISPLAY_OFF", 0x0f5},     {"KEY_WWAN", 0x0f6},
    {"KEY_WIMAX", 0x0f6},           {"KEY_RFKILL", 0x0f7},          {"KEY_MICMUTE", 0x0f8},
    {"BTN_MISC", 0x100},            {"BTN_0", 0x100},               {"BTN_1", 0x101},
    {"BTN_2", 0x102},               {"BTN_3", 0x103},               {"BTN_4", 0x104},
    {"BTN_5", 0x105},               {"BTN_6", 0x106},               {"BTN_7", 0x107},
    {"BTN_8", 0x108},               {"BTN_9", 0x109},               {"BTN_MOUSE", 0x110},
    {"BTN_LEFT", 0x110},            {"BTN_RIGHT", 0x111},           {"BTN_MIDDLE", 0x112},
    {"BTN_SIDE", 0x113},            {"BTN_EXTRA", 0x114},           {"BTN_FORWARD", 0x115},
    {"BTN_BACK", 0x116},            {"BTN_TASK", 0x117},            {"BTN_JOYSTICK", 0x120},
    {"BTN_TRIGGER", 0x120},         {"BTN_THUMB", 0x121},           {"BTN_THUMB2", 0x122},
    {"BTN_TOP", 0x123},             {"BTN_TOP2", 0x124},            {"BTN_PINKIE", 0x125},
    {"BTN_BASE", 0x126},            {"BTN_BASE2", 0x127},           {"BTN_BASE3", 0x128},
    {"BTN_BASE4", 0x129},           {"BTN_BASE5", 0x12a},           {"BTN_BASE6", 0x12b},
    {"BTN_DEAD", 0x12f},            {"BTN_GAMEPAD", 0x130},         {"BTN_SOUTH", 0x130},
    {"BTN_A", 0x130},               {"BTN_EAST", 0x131},            {"BTN_B", 0x131},
    {"BTN_C", 0x132},               {"BTN_NORTH", 0x133},           {"BTN_X", 0x133},
    {"BTN_WEST", 0x134},            {"BTN_Y", 0x134},               {"BTN_Z", 0x135},
    {"BTN_TL", 0x136},              {"BTN_TR", 0x137},              {"BTN_TL2", 0x138},
    {"BTN_TR2", 0x139},             {"BTN_SELECT", 0x13a},          {"BTN_START", 0x13b},
    {"BTN_MODE", 0x13c},            {"BTN_THUMBL", 0x13d},          {"BTN_THUMBR", 0x13e},
    {"BTN_DIGI", 0x140},            {"BTN_TOOL_PEN", 0x140},        {"BTN_TOOL_RUBBER", 0x141},
    {"BTN_TOOL_BRUSH", 0x142},      {"BTN_TOOL_PENCIL", 0x143},     {"BTN_TOOL_AIRBRUSH", 0x144},
    {"BTN_TOOL_FINGER", 0x145},     {"BTN_TOOL_MOUSE", 0x146},      {"BTN_TOOL_LENS", 0x147},
    {"BTN_TOOL_QUINTTAP", 0x148},   {"BTN_STYLUS3", 0x149},         {"BTN_TOUCH", 0x14a},
    {"BTN_STYLUS", 0x14b},          {"BTN_STYLUS2", 0x14c},         {"BTN_TOOL_DOUBLETAP", 0x14d},
    {"BTN_TOOL_TRIPLETAP", 0x14e},  {"BTN_TOOL_QUADTAP", 0x14f},    {"BTN_WHEEL", 0x150},
    {"BTN_GEAR_DOWN", 0x150},       {"BTN_GEAR_UP", 0x151},         {"KEY_OK", 0x160},
    {"KEY_SELECT", 0x161},          {"KEY_GOTO", 0x162},            {"KEY_CLEAR", 0x163},
    {"KEY_POWER2", 0x164},          {"KEY_OPTION", 0x165},          {"KEY_INFO", 0x166},
    {"KEY_TIME", 0x167},            {"KEY_VENDOR", 0x168},          {"KEY_ARCHIVE", 0x169},
    {"KEY_PROGRAM", 0x16a},         {"KEY_CHANNEL", 0x16b},         {"KEY_FAVORITES", 0x16c},
    {"KEY_EPG", 0x16d},             {"KEY_PVR", 0x16e},             {"KEY_MHP", 0x16f},
    {"KEY_LANGUAGE", 0x170},        {"KEY_TITLE", 0x171},           {"KEY_SUBTITLE", 0x172},
    {"KEY_ANGLE", 0x173},           {"KEY_FULL_SCREEN", 0x174},     {"KEY_ZOOM", 0x174},
    {"KEY_MODE", 0x175},            {"KEY_KEYBOARD", 0x176},        {"KEY_ASPECT_RATIO", 0x177},
    {"KEY_SCREEN", 0x177},          {"KEY_PC", 0x178},              {"KEY_TV", 0x179},
    {"KEY_TV2", 0x17a},             {"KEY_VCR", 0x17b},             {"KEY_VCR2", 0x17c},
    {"KEY_SAT", 0x17d},             {"KEY_SAT2", 0x17e},            {"KEY_CD", 0x17f},
    {"KEY_TAPE", 0x180},            {"KEY_RADIO", 0x181},           {"KEY_TUNER", 0x182},
    {"KEY_PLAYER", 0x183},          {"KEY_TEXT", 0x184},            {"KEY_DVD", 0x185},
    {"KEY_AUX", 0x186},             {"KEY_MP3", 0x187},             {"KEY_AUDIO", 0x188},
    {"KEY_VIDEO", 0x189},           {"KEY_DIRECTORY", 0x18a},       {"KEY_LIST", 0x18b},
    {"KEY_MEMO", 0x18c},            {"KEY_CALENDAR", 0x18d},        {"KEY_RED", 0x18e},
    {"KEY_GREEN", 0x18f},           {"KEY_YELLOW", 0x190},          {"KEY_BLUE", 0x191},
    {"KEY_CHANNELUP", 0x192},       {"KEY_CHANNELDOWN", 0x193},     {"KEY_FIRST", 0x194},
    {"KEY_LAST", 0x195},            {"KEY_AB", 0x196},              {"KEY_NEXT", 0x197},
    {"KEY_RESTART", 0x198},         {"KEY_SLOW", 0x199},            {"KEY_SHUFFLE", 0x19a},
    {"KEY_BREAK", 0x19b},           {"KEY_PREVIOUS", 0x19c},        {"KEY_DIGITS", 0x19d},
    {"KEY_TEEN", 0x19e},            {"KEY_TWEN", 0x19f},            {"KEY_VIDEOPHONE", 0x1a0},
    {"KEY_GAMES", 0x1a1},           {"KEY_ZOOMIN", 0x1a2},          {"KEY_ZOOMOUT", 0x1a3},
    {"KEY_ZOOMRESET", 0x1a4},       {"KEY_WORDPROCESSOR", 0x1a5},   {"KEY_EDITOR", 0x1a6},
    {"KEY_SPREADSHEET", 0x1a7},     {"KEY_GRAPHICSEDITOR", 0x1a8},  {"KEY_PRESENTATION", 0x1a9},
    {"KEY_DATABASE", 0x1aa},        {"KEY_NEWS", 0x1ab},            {"KEY_VOICEMAIL", 0x1ac},
    {"KEY_ADDRESSBOOK", 0x1ad},     {"KEY_MESSENGER", 0x1ae},       {"KEY_DISPLAYTOGGLE", 0x1af},
    {"KEY_BRIGHTNESS_TOGGLE", 0x1af},                               {"KEY_SPELLCHECK", 0x1b0},
    {"KEY_LOGOFF", 0x1b1},          {"KEY_DOLLAR", 0x1b2},          {"KEY_EURO", 0x1b3},
    {"KEY_FRAMEBACK", 0x1b4},       {"KEY_FRAMEFORWARD", 0x1b5},    {"KEY_CONTEXT_MENU", 0x1b6},
    {"KEY_MEDIA_REPEAT", 0x1b7},    {"KEY_10CHANNELSUP", 0x1b8},    {"KEY_10CHANNELSDOWN", 0x1b9},
    {"KEY_IMAGES", 0x1ba},          {"KEY_NOTIFICATION_CENTER", 0x1bc},
    {"KEY_PICKUP_PHONE", 0x1bd},    {"KEY_HANGUP_PHONE", 0x1be},    {"KEY_DEL_EOL", 0x1c0},
    {"KEY_DEL_EOS", 0x1c1},         {"KEY_INS_LINE", 0x1c2},        {"KEY_DEL_LINE", 0x1c3},
    {"KEY_FN", 0x1d0},              {"KEY_FN_ESC", 0x1d1},          {"KEY_FN_F1", 0x1d2},
    {"KEY_FN_F2", 0x1d3},           {"KEY_FN_F3", 0x1d4},           {"KEY_FN_F4", 0x1d5},
    {"KEY_FN_F5", 0x1d6},           {"KEY_FN_F6", 0x1d7},           {"KEY_FN_F7", 0x1d8},
    {"KEY_FN_F8", 0x1d9},           {"KEY_FN_F9", 0x1da},           {"KEY_FN_F10", 0x1db},
    {"KEY_FN_F11", 0x1dc},          {"KEY_FN_F12", 0x1dd},          {"KEY_FN_1", 0x1de},
    {"KEY_FN_2", 0x1df},            {"KEY_FN_D", 0x1e0},            {"KEY_FN_E", 0x1e1},
    {"KEY_FN_F", 0x1e2},            {"KEY_FN_S", 0x1e3},            {"KEY_FN_B", 0x1e4},
    {"KEY_FN_RIGHT_SHIFT", 0x1e5},  {"KEY_BRL_DOT1", 0x1f1},        {"KEY_BRL_DOT2", 0x1f2},
    {"KEY_BRL_DOT3", 0x1f3},        {"KEY_BRL_DOT4", 0x1f4},        {"KEY_BRL_DOT5", 0x1f5},
    {"KEY_BRL_DOT6", 0x1f6},        {"KEY_BRL_DOT7", 0x1f7},        {"KEY_BRL_DOT8", 0x1f8},
    {"KEY_BRL_DOT9", 0x1f9},        {"KEY_BRL_DOT10", 0x1fa},       {"KEY_NUMERIC_0", 0x200},
    {"KEY_NUMERIC_1", 0x201},       {"KEY_NUMERIC_2", 0x202},       {"KEY_NUMERIC_3", 0x203},
    {"KEY_NUMERIC_4", 0x204},       {"KEY_NUMERIC_5", 0x205},       {"KEY_NUMERIC_6", 0x206},
    {"KEY_NUMERIC_7", 0x207},       {"KEY_NUMERIC_8", 0x208},       {"KEY_NUMERIC_9", 0x209},
    {"KEY_NUMERIC_STAR", 0x20a},    {"KEY_NUMERIC_POUND", 0x20b},   {"KEY_NUMERIC_A", 0x20c},
    {"KEY_NUMERIC_B", 0x20d},       {"KEY_NUMERIC_C", 0x20e},       {"KEY_NUMERIC_D", 0x20f},
    {"KEY_CAMERA_FOCUS", 0x210},    {"KEY_WPS_BUTTON", 0x211},      {"KEY_TOUCHPAD_TOGGLE", 0x212},
    {"KEY_TOUCHPAD_ON", 0x213},     {"KEY_TOUCHPAD_OFF", 0x214},    {"KEY_CAMERA_ZOOMIN", 0x215},
    {"KEY_CAMERA_ZOOMOUT", 0x216},  {"KEY_CAMERA_UP", 0x217},       {"KEY_CAMERA_DOWN", 0x218},
    {"KEY_CAMERA_LEFT", 0x219},     {"KEY_CAMERA_RIGHT", 0x21a},    {"KEY_ATTENDANT_ON", 0x21b},
    {"KEY_ATTENDANT_OFF", 0x21c},   {"KEY_ATTENDANT_TOGGLE", 0x21d},
    {"KEY_LIGHTS_TOGGLE", 0x21e},   {"BTN_DPAD_UP", 0x220},         {"BTN_DPAD_DOWN", 0x221},
    {"BTN_DPAD_LEFT", 0x222},       {"BTN_DPAD_RIGHT", 0x223},      {"KEY_ALS_TOGGLE", 0x230},
    {"KEY_ROTATE_LOCK_TOGGLE", 0x231},                              {"KEY_BUTTONCONFIG", 0x240},
    {"KEY_TASKMANAGER", 0x241},     {"KEY_JOURNAL", 0x242},         {"KEY_CONTROLPANEL", 0x243},
    {"KEY_APPSELECT", 0x244},       {"KEY_SCREENSAVER", 0x245},     {"KEY_VOICECOMMAND", 0x246},
    {"KEY_ASSISTANT", 0x247},       {"KEY_KBD_LAYOUT_NEXT", 0x248}, {"KEY_EMOJI_PICKER", 0x249},
    {"KEY_DICTATE", 0x24a},         {"KEY_BRIGHTNESS_MIN", 0x250},  {"KEY_BRIGHTNESS_MAX", 0x251},
    {"KEY_KBDINPUTASSIST_PREV", 0x260},
    {"KEY_KBDINPUTASSIST_NEXT", 0x261},
    {"KEY_KBDINPUTASSIST_PREVGROUP", 0x262},
    {"KEY_KBDINPUTASSIST_NEXTGROUP", 0x263},
    {"KEY_KBDINPUTASSIST_ACCEPT", 0x264},
    {"KEY_KBDINPUTASSIST_CANCEL", 0x265},                           {"KEY_RIGHT_UP", 0x266},
    {"KEY_RIGHT_DOWN", 0x267},      {"KEY_LEFT_UP", 0x268},         {"KEY_LEFT_DOWN", 0x269},
    {"KEY_ROOT_MENU", 0x26a},       {"KEY_MEDIA_TOP_MENU", 0x26b},  {"KEY_NUMERIC_11", 0x26c},
    {"KEY_NUMERIC_12", 0x26d},      {"KEY_AUDIO_DESC", 0x26e},      {"KEY_3D_MODE", 0x26f},
    {"KEY_NEXT_FAVORITE", 0x270},   {"KEY_STOP_RECORD", 0x271},     {"KEY_PAUSE_RECORD", 0x272},
    {"KEY_VOD", 0x273},             {"KEY_UNMUTE", 0x274},          {"KEY_FASTREVERSE", 0x275},
    {"KEY_SLOWREVERSE", 0x276},     {"KEY_DATA", 0x277},
    {"KEY_ONSCREEN_KEYBOARD", 0x278},
    {"KEY_PRIVACY_SCREEN_TOGGLE", 0x279},
    {"KEY_SELECTIVE_SCREENSHOT", 0x27a},                            {"KEY_MACRO1", 0x290},
    {"KEY_MACRO2", 0x291},          {"KEY_MACRO3", 0x292},          {"KEY_MACRO4", 0x293},
    {"KEY_MACRO5", 0x294},          {"KEY_MACRO6", 0x295},          {"KEY_MACRO7", 0x296},
    {"KEY_MACRO8", 0x297},          {"KEY_MACRO9", 0x298},          {"KEY_MACRO10", 0x299},
    {"KEY_MACRO11", 0x29a},         {"KEY_MACRO12", 0x29b},         {"KEY_MACRO13", 0x29c},
    {"KEY_MACRO14", 0x29d},         {"KEY_MACRO15", 0x29e},         {"KEY_MACRO16", 0x29f},
    {"KEY_MACRO17", 0x2a0},         {"KEY_MACRO18", 0x2a1},         {"KEY_MACRO19", 0x2a2},
    {"KEY_MACRO20", 0x2a3},         {"KEY_MACRO21", 0x2a4},         {"KEY_MACRO22", 0x2a5},
    {"KEY_MACRO23", 0x2a6},         {"KEY_MACRO24", 0x2a7},         {"KEY_MACRO25", 0x2a8},
    {"KEY_MACRO26", 0x2a9},         {"KEY_MACRO27", 0x2aa},         {"KEY_MACRO28", 0x2ab},
    {"KEY_MACRO29", 0x2ac},         {"KEY_MACRO30", 0x2ad},
    {"KEY_MACRO_RECORD_START", 0x2b0},
    {"KEY_MACRO_RECORD_STOP", 0x2b1},
    {"KEY_MACRO_PRESET_CYCLE", 0x2b2},                              {"KEY_MACRO_PRESET1", 0x2b3},
    {"KEY_MACRO_PRESET2", 0x2b4},   {"KEY_MACRO_PRESET3", 0x2b5},   {"KEY_KBD_LCD_MENU1", 0x2b8},
    {"KEY_KBD_LCD_MENU2", 0x2b9},   {"KEY_KBD_LCD_MENU3", 0x2ba},   {"KEY_KBD_LCD_MENU4", 0x2bb},
    {"KEY_KBD_LCD_MENU5", 0x2bc},   {"BTN_TRIGGER_HAPPY", 0x2c0},   {"BTN_TRIGGER_HAPPY1", 0x2c0},
    {"BTN_TRIGGER_HAPPY2", 0x2c1},  {"BTN_TRIGGER_HAPPY3", 0x2c2},  {"BTN_TRIGGER_HAPPY4", 0x2c3},
    {"BTN_TRIGGER_HAPPY5", 0x2c4},  {"BTN_TRIGGER_HAPPY6", 0x2c5},  {"BTN_TRIGGER_HAPPY7", 0x2c6},
    {"BTN_TRIGGER_HAPPY8", 0x2c7},  {"BTN_TRIGGER_HAPPY9", 0x2c8},  {"BTN_TRIGGER_HAPPY10", 0x2c9},
    {"BTN_TRIGGER_HAPPY11", 0x2ca}, {"BTN_TRIGGER_HAPPY12", 0x2cb}, {"BTN_TRIGGER_HAPPY13", 0x2cc},
    {"BTN_TRIGGER_HAPPY14", 0x2cd}, {"BTN_TRIGGER_HAPPY15", 0x2ce}, {"BTN_TRIGGER_HAPPY16", 0x2cf},
    {"BTN_TRIGGER_HAPPY17", 0x2d0}, {"BTN_TRIGGER_HAPPY18", 0x2d1}, {"BTN_TRIGGER_HAPPY19", 0x2d2},
    {"BTN_TRIGGER_HAPPY20", 0x2d3}, {"BTN_TRIGGER_HAPPY21", 0x2d4}, {"BTN_TRIGGER_HAPPY22", 0x2d5},
    {"BTN_TRIGGER_HAPPY23", 0x2d6}, {"BTN_TRIGGER_HAPPY24", 0x2d7}, {"BTN_TRIGGER_HAPPY25", 0x2d8},
    {"BTN_TRIGGER_HAPPY26", 0x2d9}, {"BTN_TRIGGER_HAPPY27", 0x2da}, {"BTN_TRIGGER_HAPPY28", 0x2db},
    {"BTN_TRIGGER_HAPPY29", 0x2dc}, {"BTN_TRIGGER_HAPPY30", 0x2dd}, {"BTN_TRIGGER_HAPPY31", 0x2de},
    {"BTN_TRIGGER_HAPPY32", 0x2df}, {"BTN_TRIGGER_HAPPY33", 0x2e0}, {"BTN_TRIGGER_HAPPY34", 0x2e1},
    {"BTN_TRIGGER_HAPPY35", 0x2e2}, {"BTN_TRIGGER_HAPPY36", 0x2e3}, {"BTN_TRIGGER_HAPPY37", 0x2e4},
    {"BTN_TRIGGER_HAPPY38", 0x2e5}, {"BTN_TRIGGER_HAPPY39", 0x2e6}, {"BTN_TRIGGER_HAPPY40", 0x2e7},
    {"KEY_MIN_INTERESTING", 0x071}, {"KEY_MAX", 0x2ff},
};
// clang-format on

template <size_t Size>
using NameIndex = std::array<const char*, Size>;

// Names by code, null where there is none; the first name of a code wins. A code that is not below
// `Size` does not compile.
template <size_t Size, size_t Rows>
constexpr NameIndex<Size> index_by_code(const CodeName (&rows)[Rows]) {
  NameIndex<Size> index{};
  for (const CodeName& row : rows) {
    if (index[row.code] == nullptr) index[row.code] = row.name;
  }
  return index;
}

// One more than the highest code of each kind.
constexpr NameIndex<0x20> kTypeIndex = index_by_code<0x20>(kTypes);
constexpr NameIndex<0x10> kSyncIndex = index_by_code<0x10>(kSyncs);
constexpr NameIndex<0x300> kKeyIndex = index_by_code<0x300>(kKeys);
constexpr NameIndex<0x10> kRelativeIndex = index_by_code<0x10>(kRelatives);
constexpr NameIndex<0x40> kAbsoluteIndex = index_by_code<0x40>(kAbsolutes);
constexpr NameIndex<0x08> kMiscIndex = index_by_code<0x08>(kMiscs);
constexpr NameIndex<0x11> kSwitchIndex = index_by_code<0x11>(kSwitches);
constexpr NameIndex<0x10> kLedIndex = index_by_code<0x10>(kLeds);
constexpr NameIndex<0x08> kSoundIndex = index_by_code<0x08>(kSounds);
constexpr NameIndex<0x02> kRepeatIndex = index_by_code<0x02>(kRepeats);

// The codes of one event type.
struct CodeRange {
  const char* const* names;
  size_t size;
};

template <size_t Size>
constexpr CodeRange range(const NameIndex<Size>& index) {
  return {index.data(), Size};
}

constexpr uint16_t kLastTypeWithCodes = 0x14;  // EV_REP

constexpr std::array<CodeRange, kLastTypeWithCodes + 1> make_codes_by_type() {
  std::array<CodeRange, kLastTypeWithCodes + 1> codes{};
  codes[0x00] = range(kSyncIndex);
  codes[0x01] = range(kKeyIndex);
  codes[0x02] = range(kRelativeIndex);
  codes[0x03] = range(kAbsoluteIndex);
  codes[0x04] = range(kMiscIndex);
  codes[0x05] = range(kSwitchIndex);
  codes[0x11] = range(kLedIndex);
  codes[0x12] = range(kSoundIndex);
  codes[0x14] = range(kRepeatIndex);
  return codes;
}

constexpr std::array<CodeRange, kLastTypeWithCodes + 1> kCodesByType = make_codes_by_type();

constexpr const char* kKeyValues[] = {"UP", "DOWN", "REPEAT"};

}  // namespace

const char* event_type_name(uint16_t type) {
  return type < kTypeIndex.size() ? kTypeIndex[type] : nullptr;
}

const char* event_code_name(uint16_t type, uint16_t code) {
  if (type > kLastTypeWithCodes || code >= kCodesByType[type].size) return nullptr;
  return kCodesByType[type].names[code];
}

const char* key_value_name(int32_t value) {
  return value >= 0 && value <= 2 ? kKeyValues[value] : nullptr;
}
