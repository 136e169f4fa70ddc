// Writes one JSON value (RFC 8259); inserts the commas.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <string_view>

class JsonWriter {
 public:
  JsonWriter& begin_object() { return open('{'); }
  JsonWriter& end_object() { return shut('}'); }
  JsonWriter& begin_array() { return open('['); }
  JsonWriter& end_array() { return shut(']'); }
  JsonWriter& key(std::string_view name);

  JsonWriter& null() { return raw("null"); }
  JsonWriter& boolean(bool value) { return raw(value ? "true" : "false"); }
  JsonWriter& number(int64_t value) { return raw(std::to_string(value)); }
  // Bytes that are not UTF-8 become U+FFFD each: a JSON text cannot hold them.
  JsonWriter& string(std::string_view bytes);

  JsonWriter& member(std::string_view name, std::string_view value) {
    return key(name).string(value);
  }
  JsonWriter& member(std::string_view name, const char* value) { return key(name).string(value); }
  JsonWriter& member(std::string_view name, int64_t value) { return key(name).number(value); }
  // null when `value` is empty.
  JsonWriter& optional(std::string_view name, std::string_view value) {
    return value.empty() ? key(name).null() : member(name, value);
  }
  JsonWriter& flag(std::string_view name, bool value) { return key(name).boolean(value); }

  const std::string& text() const { return text_; }

 private:
  JsonWriter& open(char bracket);
  JsonWriter& shut(char bracket);
  JsonWriter& raw(std::string_view value);
  void separate();

  std::string text_;
  bool first_ = true;  // nothing was written since the last opening bracket or key
};

// Bytes of the UTF-8 character at the start of `bytes`, 0 when it does not begin with a whole one.
size_t utf8_length(std::string_view bytes);
