#include "input/event_line.h"

#include <string.h>

#include <algorithm>

#include "input/event_names.h"

namespace {

// Widths of the columns. A name longer than its column is cut.
constexpr size_t kTypeWidth = 12;
constexpr size_t kFieldWidth = 20;  // code and key value
constexpr size_t kHexDigits = 4;
constexpr size_t kBlanksAfterValue = 12;  // after a decimal value, whatever its length

constexpr uint16_t kKeyType = 0x01;  // EV_KEY

// Appends to a buffer that is known to be large enough. printf would take longer over a line than
// the kernel over one of its writes, and the recorder runs while the user is touching the screen.
class text_writer {
 public:
  explicit text_writer(char* begin) : begin_(begin), end_(begin) {}

  void put(char c) { *end_++ = c; }

  void blanks(size_t count) {
    memset(end_, ' ', count);
    end_ += count;
  }

  // Left-aligned in `width` characters, cut when longer.
  void padded(const char* text, size_t width) {
    const size_t length = strnlen(text, width);
    memcpy(end_, text, length);
    end_ += length;
    blanks(width - length);
  }

  // At least `digits` decimal digits.
  void decimal(uint64_t number, int digits) {
    char reversed[20];  // 2^64 has as many digits
    int count = 0;
    for (; number != 0 || count < digits; number /= 10)
      reversed[count++] = static_cast<char>('0' + number % 10);
    end_ = std::reverse_copy(reversed, reversed + count, end_);
  }

  void signed_decimal(int64_t number, int digits) {
    if (number < 0) put('-');
    const uint64_t magnitude = static_cast<uint64_t>(number);
    decimal(number < 0 ? 0 - magnitude : magnitude, digits);
  }

  // `name` in a column of `width`, or without a name the number in hex, padded likewise.
  void name_or_hex(const char* name, uint16_t number, size_t width) {
    if (name != nullptr) {
      padded(name, width);
      return;
    }
    for (int shift = 12; shift >= 0; shift -= 4) put("0123456789abcdef"[number >> shift & 0xf]);
    blanks(width - kHexDigits);
  }

  size_t finish() {
    *end_ = '\0';
    return static_cast<size_t>(end_ - begin_);
  }

 private:
  char* begin_;
  char* end_;
};

}  // namespace

size_t format_event_stamp(char (&text)[kEventStampSize], const civil_time& when,
                          long microseconds) {
  text_writer out(text);
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
  text_writer out(line);
  out.name_or_hex(event_type_name(type), type, kTypeWidth);
  out.put(' ');
  out.name_or_hex(event_code_name(type, code), code, kFieldWidth);
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
