// Builds request frames byte by byte, without the platform's serialisation class: what the daemon
// reads through that class is thereby written by a second pair of hands.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <string_view>
#include <vector>

#include "protocol/protocol.h"

// One item of a frame, for showing it to people.
struct FrameField {
  const char* name;
  size_t offset;  // bytes from the start of the frame
  size_t size;    // bytes, padding included
  std::string value;
};

struct RequestFrame {
  std::string bytes;  // 2-byte length and payload, ready to be sent
  std::vector<FrameField> fields;
};

// The arguments of a request; only those that its row in kRequestNames names are sent.
struct RequestValues {
  int32_t mask = 0;
  std::string_view path;  // UTF-8
};

// Encodes `request`. False and one line in `error` when the path is not valid UTF-8 or the frame
// would be refused by frame_payload().
bool encode_request(const RequestName& request, int64_t serial, const RequestValues& values,
                    RequestFrame* frame, std::string* error);

// Puts the length before `payload`. False and one line in `error` when the daemon would not survive
// or not serve it: empty, more than kPayloadMax bytes, or more than kDumpTextMax characters of dump
// text.
bool frame_payload(std::string_view payload, std::string* frame, std::string* error);

// Characters, without terminator, of the hex text ("%x-" a byte) that the daemon makes of `bytes`.
size_t dump_text_length(std::string_view bytes);

// Converts UTF-8 to UTF-16, characters above U+FFFF as surrogate pairs. False, with `units`
// unspecified, for anything that is not UTF-8: cut or overlong sequences, encoded surrogates,
// characters above U+10FFFF.
bool utf8_to_utf16(std::string_view text, std::u16string* units);
