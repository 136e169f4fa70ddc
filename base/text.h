// Fixed character buffers. The name of a function says what happens to a text that does not fit:
// "or_abort" ends the process, in every build and on every C library; "cut" truncates.
#pragma once

#include <stdarg.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>

// Appends `src` to the text in `dst` (a buffer of `size` bytes); a text that does not fit, with its
// NUL, ends the process with abort(). Returns the new length.
size_t append_or_abort(char* dst, size_t size, const char* src);

template <size_t N>
size_t append_or_abort(char (&dst)[N], const char* src) {
  return append_or_abort(dst, N, src);
}

template <size_t N>
size_t copy_or_abort(char (&dst)[N], const char* src) {
  dst[0] = '\0';
  return append_or_abort(dst, N, src);
}

// snprintf() that returns the length of the text in `dst`, 0 .. N - 1.
template <size_t N>
size_t format_cut(char (&dst)[N], const char* fmt, ...) __attribute__((format(printf, 2, 3)));

template <size_t N>
size_t format_cut(char (&dst)[N], const char* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  const int wanted = vsnprintf(dst, N, fmt, args);
  va_end(args);
  if (wanted < 0) {
    dst[0] = '\0';
    return 0;
  }
  return static_cast<size_t>(wanted) < N ? static_cast<size_t>(wanted) : N - 1;
}

// True when `text` begins with `prefix`.
inline bool starts_with(const char* text, const char* prefix) {
  return strncmp(text, prefix, strlen(prefix)) == 0;
}

// The number at the beginning of `text`, as atoi() finds it; `otherwise` when there is none, or it
// is negative or above `most`.
inline int read_count(const std::string& text, int most, int otherwise) {
  char* end = nullptr;
  const long long number = strtoll(text.c_str(), &end, 10);
  return end != text.c_str() && number >= 0 && number <= most ? static_cast<int>(number)
                                                              : otherwise;
}
