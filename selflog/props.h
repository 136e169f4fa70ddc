// Typed reads of system properties. None fails: an unset property has its default; text that is no
// number reads as 0 unless stated otherwise. Any process, any thread.
#pragma once

#include <string>

#include "model/properties.h"

// The integer that the value begins with. `def` is used for an unset or empty property; one that
// takes more than 7 characters aborts.
int get_int_prop(const char* key, int def);

// The same for a count: also `def`, after one error line, for a value that begins with no number or
// one outside 0 to `most`.
int get_count_prop(const char* key, int def, int most);

// The value as a part of a file's name, `def` when unset or empty: blanks and slashes are dashes.
// "." and ".." stay: do not use it as a whole name.
std::string get_name_prop(const char* key, const char* def);

// The value, or `def` when it is unset or empty; at most 91 bytes.
std::string get_string_prop(const char* key, const char* def);

// True when the value begins with the two letters "on"; `def` stands for an unset property.
bool is_prop_on(const char* key, const char* def);

int get_logger_types();          // the active logger type mask
bool has_logger_type(int mask);  // true when the active mask shares a bit with `mask`
bool is_logger_enabled();        // debug logging is switched on
bool is_in_cts();                // a compatibility test suite runs: logs are not deleted
bool is_in_monkey();             // a monkey test runs: logs are not deleted
bool is_poweroffcharge();        // the device charges in the powered-off state
