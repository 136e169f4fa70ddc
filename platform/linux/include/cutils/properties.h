// System properties: the platform's own names and signatures, for plain Linux.
#pragma once

#include <stddef.h>

// Longest value, in bytes, with its terminating NUL.
#define PROPERTY_VALUE_MAX 92

// As on the platform, an array that is too small for a value does not compile (clang alone can
// tell).
#if defined(__clang__)
#define HARROWMOSS_HOLDS_A_VALUE(array)                                            \
  __attribute__((diagnose_if(__builtin_object_size(array, 1) < PROPERTY_VALUE_MAX, \
                             "the array is shorter than PROPERTY_VALUE_MAX", "error")))
#else
#define HARROWMOSS_HOLDS_A_VALUE(array)
#endif

extern "C" {

// Copies the value of `key` into `value` (PROPERTY_VALUE_MAX bytes) and returns its length in
// bytes. An unset or empty property yields `default_value`, cut at 91 bytes; a null default leaves
// "". Makes no system call and takes no lock. Any process, any thread, signal handlers included.
int property_get(const char* key, char* value, const char* default_value)
    HARROWMOSS_HOLDS_A_VALUE(value);

// Sets `key`; a null `value` means "". Returns 0, or -1 when the key is empty or holds a byte
// outside [A-Za-z0-9._:@-] or begins or ends with '.', or holds "..", when a value of more than
// 91 bytes is given to a key that does not begin with "ro.", or when a "ro." key is set already.
// Any process, any thread, signal handlers included.
int property_set(const char* key, const char* value);

}  // extern "C"
