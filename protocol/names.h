// Masks as people write them: lists of names, numbers, or both.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <string_view>

#include "protocol/protocol.h"

// The words of one kind of mask.
struct MaskWords {
  const char* what;      // "logger type", for error texts
  const NamedBit* rows;  // "all" stands for every bit of these
  size_t row_count;
  const NamedBit* extra;  // known by name, but not part of "all"; may be null
  size_t extra_count;
};

extern const MaskWords kLoggerTypeWords;
extern const MaskWords kFeedbackWords;

// Reads "mobile,net", "all", "none", decimal or 0x numbers up to 0x7fffffff, and any comma list of
// these; names in any case. True and the union in `mask`; otherwise false and one line in `error`
// that names the culprit and what is allowed. Bits without a name are accepted in numbers.
bool parse_mask(const MaskWords& words, std::string_view text, int32_t* mask, std::string* error);

// The names of the bits of `mask` in table order, bits without a name as one number behind them:
// "mobile,net,0x800"; "none" for 0. parse_mask() reads it back.
std::string mask_text(const MaskWords& words, int32_t mask);

// The bits of `mask` that have no name.
int32_t unnamed_bits(const MaskWords& words, int32_t mask);
