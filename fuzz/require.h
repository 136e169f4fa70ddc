// How a fuzz target states a promise.
#pragma once

#include <stdlib.h>

// Ends the process with abort() when the promise is broken: the fuzzer reports the input.
inline void require(bool holds) {
  if (!holds) abort();
}
