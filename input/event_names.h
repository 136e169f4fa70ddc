// The names of input event types and codes, as the Linux header for input event codes spells them.
// Each lookup indexes a table; any process, any thread, signal handlers included.
#pragma once

#include <stdint.h>

// "EV_KEY" for 1; null for a type without a name.
const char* event_type_name(uint16_t type);

// "BTN_TOUCH" for EV_KEY and 0x14a; null when the type has no named codes (all above EV_REP, 0x14)
// or the code no name. Of several names for one code the header's first one.
const char* event_code_name(uint16_t type, uint16_t code);

// "UP", "DOWN" and "REPEAT" for a key's values 0, 1 and 2; else null.
const char* key_value_name(int32_t value);
