// Formats numbers and columns without printf(), which takes longer than the kernel takes to write
// the line. For the self log and the touch recorder.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <string_view>

// Appends to a buffer without checking its size.
class TextWriter {
 public:
  explicit TextWriter(char* begin) : begin_(begin), end_(begin) {}

  void put(char c) { *end_++ = c; }

  void put(std::string_view text) {
    memcpy(end_, text.data(), text.size());
    end_ += text.size();
  }

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
    if (digits == 2 && number < 100) {  // the common case in a time stamp
      const uint32_t two = static_cast<uint32_t>(number);
      put(static_cast<char>('0' + two / 10));
      put(static_cast<char>('0' + two % 10));
      return;
    }
    int count = digits;
    for (uint64_t limit = power_of_ten(digits); count < kMaxDigits && number >= limit; limit *= 10)
      count++;
    for (char* at = end_ += count; count > 0; count--, number /= 10)
      *--at = static_cast<char>('0' + number % 10);
  }

  void signed_decimal(int64_t number, int digits) {
    if (number < 0) put('-');
    const uint64_t magnitude = static_cast<uint64_t>(number);
    decimal(number < 0 ? 0 - magnitude : magnitude, digits);
  }

  // Ends the text with a NUL and returns its length without it.
  size_t finish() {
    *end_ = '\0';
    return static_cast<size_t>(end_ - begin_);
  }

 private:
  static constexpr int kMaxDigits = 20;  // 2^64 has as many

  static constexpr uint64_t power_of_ten(int exponent) {
    return exponent == 0 ? 1 : 10 * power_of_ten(exponent - 1);
  }

  char* begin_;
  char* end_;
};
