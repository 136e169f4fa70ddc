// Decodes replies, independently of the platform's Parcel: tests compare the two.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <string_view>

#include "protocol/protocol.h"

// Bytes of the longest possible reply: the daemon dumps each reply as text, at least two characters
// per byte, and aborts when the text is longer than kDumpTextMax.
constexpr int32_t kReplyMax = kDumpTextMax / 2;
constexpr int32_t kReplyMin = 12;  // code and serial

struct Reply {
  int32_t code = 0;
  int64_t serial = 0;
  bool has_result = false;  // false: the reply ends behind the serial
  bool unknown = false;     // the daemon does not know the request; `number` is -1
  int32_t number = 0;       // for ReplyFields::kInt
  std::string text;         // for ReplyFields::kText, may hold any byte but NUL
};

// Reads `data` as the answer to `request` with `serial`. False and one line in `error` when it has
// a wrong size, belongs to another request, or its lengths contradict each other.
bool decode_reply(std::string_view data, const RequestName& request, int64_t serial, Reply* out,
                  std::string* error);

// A little-endian int32 at `offset`, which must lie within `data`.
int32_t int32_at(std::string_view data, size_t offset);
