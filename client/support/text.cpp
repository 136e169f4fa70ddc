#include "client/support/text.h"

#include <stdio.h>

#include "client/support/json.h"

std::string printable(std::string_view bytes) {
  std::string text;
  while (!bytes.empty()) {
    const unsigned char byte = bytes[0];
    const size_t length = utf8_length(bytes);
    // U+0080 to U+009f are control characters too: c2 80 to c2 9f.
    const bool control =
        (byte < 0x20 && byte != '\n') || byte == 0x7f ||
        (byte == 0xc2 && length == 2 && static_cast<unsigned char>(bytes[1]) < 0xa0);
    if (length != 0 && !control) {
      text += bytes.substr(0, length);
      bytes.remove_prefix(length);
      continue;
    }
    char escape[8];
    snprintf(escape, sizeof escape, "\\x%02x", byte);
    text += escape;
    bytes.remove_prefix(1);
  }
  return text;
}

std::string one_line(std::string_view bytes) {
  std::string text = printable(bytes);
  for (size_t at; (at = text.find('\n')) != std::string::npos;) text.replace(at, 1, "\\x0a");
  return text;
}

std::string hex_text(std::string_view bytes) {
  std::string text;
  for (const char c : bytes) {
    char digits[4];
    snprintf(digits, sizeof digits, text.empty() ? "%02x" : " %02x", static_cast<unsigned char>(c));
    text += digits;
  }
  return text;
}
