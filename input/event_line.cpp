#include "input/event_line.h"

#include "base/text_writer.h"
#include "input/event_names.h"

namespace {

// Widths of the columns. A name longer than its column is cut.
constexpr size_t kTypeWidth = 12;
constexpr size_t kFieldWidth = 20;  // code and key value
constexpr size_t kHexDigits = 4;
constexpr size_t kBlanksAfterValue = 12;  // after a decimal value, whatever its length

constexpr uint16_t kKeyType = 0x01;  // EV_KEY

// `name` in a column of `width`, or without a name the number in hex, padded likewise.
void name_or_hex(TextWriter* out, const char* name, uint16_t number, size_t width) {
  if (name != nullptr) {
    out->padded(name, width);
    return;
  }
  for (int shift = 12; shift >= 0; shift -= 4) out->put("0123456789abcdef"[number >> shift & 0xf]);
  out->blanks(width - kHexDigits);
}

}  // namespace

size_t format_event_stamp(char (&text)[kEventStampSize], const CivilTime& when, long microseconds) {
  TextWriter out(text);
  const struct {
    int number;
    char after;
  } parts[] = {
      {when.month, '-'}, {when.day, ' '}, {when.hour, ':'}, {when.minute, ':'}, {when.second, ':'}};
  out.signed_decimal(when.year, 4);
  out.put('-');
  for (const auto& part : parts) {
    out.signed_decimal(part.number, 2);
    out.put(part.after);
  }
  out.signed_decimal(microseconds, 1);
  out.blanks(2);
  return out.finish();
}

const char* event_device_marker(bool second_touch) {
  return second_touch ? "  second  " : "          ";
}

size_t format_event_fields(char (&line)[kEventLineSize], uint16_t type, uint16_t code,
                           int32_t value) {
  TextWriter out(line);
  name_or_hex(&out, event_type_name(type), type, kTypeWidth);
  out.put(' ');
  name_or_hex(&out, event_code_name(type, code), code, kFieldWidth);
  out.put(' ');
  const char* value_name = type == kKeyType ? key_value_name(value) : nullptr;
  if (value_name != nullptr) {
    out.padded(value_name, kFieldWidth);
  } else {
    out.signed_decimal(value, 1);
    out.blanks(kBlanksAfterValue);
  }
  return out.finish();
}
