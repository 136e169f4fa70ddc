#include "client/support/json.h"

#include <stdio.h>

#include "protocol/encode.h"

void JsonWriter::separate() {
  if (!first_) text_ += ',';
  first_ = false;
}

JsonWriter& JsonWriter::open(char bracket) {
  separate();
  text_ += bracket;
  first_ = true;
  return *this;
}

JsonWriter& JsonWriter::shut(char bracket) {
  text_ += bracket;
  first_ = false;
  return *this;
}

JsonWriter& JsonWriter::raw(std::string_view value) {
  separate();
  text_ += value;
  return *this;
}

JsonWriter& JsonWriter::key(std::string_view name) {
  string(name);
  text_ += ':';
  first_ = true;
  return *this;
}

JsonWriter& JsonWriter::string(std::string_view bytes) {
  separate();
  text_ += '"';
  while (!bytes.empty()) {
    const unsigned char byte = bytes[0];
    size_t length = byte < 0x80 ? 1 : utf8_length(bytes);
    if (byte == '"' || byte == '\\') {
      text_ += '\\';
      text_ += bytes[0];
    } else if (byte < 0x20 || byte == 0x7f) {
      char escape[8];
      snprintf(escape, sizeof escape, "\\u%04x", byte);
      text_ += escape;
    } else {
      text_ += length == 0 ? std::string_view("\xef\xbf\xbd") : bytes.substr(0, length);
    }
    if (length == 0) length = 1;
    bytes.remove_prefix(length);
  }
  text_ += '"';
  return *this;
}

size_t utf8_length(std::string_view bytes) {
  std::u16string units;
  for (size_t length = 1; length <= 4 && length <= bytes.size(); length++) {
    if (utf8_to_utf16(bytes.substr(0, length), &units)) return length;
  }
  return 0;
}
