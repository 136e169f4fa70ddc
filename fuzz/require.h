// Checks of the fuzz targets.
#pragma once

#include <stdlib.h>

// Calls abort() when `condition` is false: the fuzzer reports the input.
inline void require(bool condition) {
  if (!condition) abort();
}
