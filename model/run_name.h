// The grammar of a run's name: "[<number>#]MM-DD_hh-mm-ss", as the daemon writes it.
#pragma once

#include <stdint.h>

#include <string_view>

// The number of a run, 0 for a name without one; -1 for a text that is no name of a run. A number
// is 1..2147483647, without sign and leading zeros; every part of the time has two digits.
int32_t run_number(std::string_view name);
