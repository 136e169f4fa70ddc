// Writes one JSON value (RFC 8259) piece by piece; puts the commas.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <string_view>

class json_writer {
 public:
  json_writer& begin_object() { return open('{'); }
  json_writer& end_object() { return shut('}'); }
  json_writer& begin_array() { return open('['); }
  json_writer& end_array() { return shut(']'); }
  json_writer& key(std::string_view name);

  json_writer& null() { return raw("null"); }
  json_writer& boolean(bool value) { return raw(value ? "true" : "false"); }
  json_writer& number(int64_t value) { return raw(std::to_string(value)); }
  // Bytes that are not UTF-8 become U+FFFD each: a JSON text cannot hold them.
  json_writer& string(std::string_view bytes);

  json_writer& member(std::string_view name, std::string_view value) {
    return key(name).string(value);
  }
  json_writer& member(std::string_view name, const char* value) { return key(name).string(value); }
  json_writer& member(std::string_view name, int64_t value) { return key(name).number(value); }
  json_writer& flag(std::string_view name, bool value) { return key(name).boolean(value); }

  const std::string& text() const { return text_; }

 private:
  json_writer& open(char bracket);
  json_writer& shut(char bracket);
  json_writer& raw(std::string_view value);
  void separate();

  std::string text_;
  bool first_ = true;  // nothing stands yet behind the last opening bracket or key
};

// Bytes of the UTF-8 character at the start of `bytes`, 0 when it does not begin with a whole one.
size_t utf8_length(std::string_view bytes);
