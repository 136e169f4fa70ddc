#include <stdint.h>
#include <stdlib.h>

#include "daemon/harrowmoss.h"

namespace {

// Above this many units the sum of 3 bytes each could overflow 64 bits.
constexpr size_t kSafeUnits = 0x5555555555555554;

size_t encoded_bytes(char16_t unit) {
  if (unit >= 0x0001 && unit <= 0x007F) return 1;
  return unit <= 0x07FF ? 2 : 3;
}

char* encode(char16_t unit, char* out) {
  switch (encoded_bytes(unit)) {
    case 1:
      *out++ = static_cast<char>(unit);
      break;
    case 2:
      *out++ = static_cast<char>(0xC0 | (unit >> 6));
      *out++ = static_cast<char>(0x80 | (unit & 0x3F));
      break;
    default:
      *out++ = static_cast<char>(0xE0 | (unit >> 12));
      *out++ = static_cast<char>(0x80 | ((unit >> 6) & 0x3F));
      *out++ = static_cast<char>(0x80 | (unit & 0x3F));
      break;
  }
  return out;
}

}  // namespace

char* strndup16to8(const char16_t* s, size_t n) {
  if (s == nullptr) return nullptr;
  size_t bytes = 0;
  for (size_t i = 0; i < n; i++) {
    const size_t more = encoded_bytes(s[i]);
    if (n >= kSafeUnits && bytes > SIZE_MAX - more) return nullptr;
    bytes += more;
  }
  if (bytes > SIZE_MAX - 2) return nullptr;  // no room for the terminator
  char* text = static_cast<char*>(malloc(bytes + 1));
  if (text == nullptr) return nullptr;
  char* end = text;
  for (size_t i = 0; i < n; i++) end = encode(s[i], end);
  *end = '\0';
  return text;
}
