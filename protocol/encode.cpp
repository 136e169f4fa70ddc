#include "protocol/encode.h"

#include <stdio.h>

#include "protocol/names.h"

namespace {

// Appends items the way the platform lays them out: little-endian, every item padded to 4 bytes.
class PayloadWriter {
 public:
  explicit PayloadWriter(RequestFrame* frame) : frame_(frame) {}

  void int32(const char* name, int32_t value, std::string shown) {
    const size_t start = payload_.size();
    little_endian(static_cast<uint32_t>(value), 4);
    note(name, start, std::move(shown));
  }

  void int64(const char* name, int64_t value) {  // at the next multiple of 4, not of 8
    const size_t start = payload_.size();
    little_endian(static_cast<uint64_t>(value), 8);
    note(name, start, std::to_string(value));
  }

  // Count, units, a zero unit, and zeros up to a multiple of 4.
  bool string16(const char* name, std::string_view text) {
    std::u16string units;
    if (!utf8_to_utf16(text, &units)) return false;
    const size_t start = payload_.size();
    little_endian(units.size(), 4);
    for (const char16_t unit : units) little_endian(unit, 2);
    little_endian(0, 2);
    while (payload_.size() % 4 != 0) payload_ += '\0';
    note(name, start, '"' + std::string(text) + '"');
    return true;
  }

  const std::string& payload() const { return payload_; }

 private:
  void little_endian(uint64_t value, int bytes) {
    for (int i = 0; i < bytes; i++) payload_ += static_cast<char>(value >> (8 * i) & 0xff);
  }
  void note(const char* name, size_t start, std::string shown) {
    frame_->fields.push_back({name, 2 + start, payload_.size() - start, std::move(shown)});
  }

  RequestFrame* frame_;
  std::string payload_;
};

std::string shown_mask(const RequestName& request, int32_t mask) {
  const bool types = request.arguments == RequestArguments::kMask;
  char number[16];
  snprintf(number, sizeof number, " (0x%x)", static_cast<unsigned>(mask));
  return mask_text(types ? kLoggerTypeWords : kFeedbackWords, mask) + number;
}

}  // namespace

bool encode_request(const RequestName& request, int64_t serial, const RequestValues& values,
                    RequestFrame* frame, std::string* error) {
  using Arguments = RequestArguments;
  const Arguments kind = request.arguments;
  *frame = {};
  PayloadWriter out(frame);
  out.int32("code", request.code, std::to_string(request.code) + " " + request.command);
  out.int64("serial", serial);
  if (kind == Arguments::kMask || kind == Arguments::kMaskPathInt) {
    out.int32("mask", values.mask, shown_mask(request, values.mask));
  }
  if (kind == Arguments::kPath || kind == Arguments::kMaskPathInt) {
    if (!out.string16("path", values.path)) {
      *error = "the path is not valid UTF-8";
      return false;
    }
  }
  if (kind == Arguments::kMaskPathInt) out.int32("unused", 0, "0");
  if (!frame_payload(out.payload(), &frame->bytes, error)) return false;
  frame->fields.insert(frame->fields.begin(),
                       {"length", 0, 2, std::to_string(out.payload().size())});
  return true;
}

bool frame_payload(std::string_view payload, std::string* frame, std::string* error) {
  if (payload.empty() || payload.size() > kPayloadMax) {
    *error = "a payload of " + std::to_string(payload.size()) + " bytes; the daemon serves 1 to " +
             std::to_string(kPayloadMax);
    return false;
  }
  const size_t text = dump_text_length(payload);
  if (text > kDumpTextMax) {
    *error = "the daemon's dump of this request would take " + std::to_string(text) +
             " characters; it aborts above " + std::to_string(kDumpTextMax);
    return false;
  }
  *frame = {static_cast<char>(payload.size() & 0xff), static_cast<char>(payload.size() >> 8)};
  frame->append(payload);
  return true;
}

size_t dump_text_length(std::string_view bytes) {
  size_t length = 0;
  for (const char c : bytes) length += static_cast<unsigned char>(c) < 0x10 ? 2 : 3;
  return length;
}

bool utf8_to_utf16(std::string_view text, std::u16string* units) {
  units->clear();
  for (size_t i = 0; i < text.size();) {
    const unsigned char lead = text[i++];
    // How many bytes follow, and the smallest character that needs as many.
    const int more = lead < 0x80 ? 0 : (lead >> 5) == 6 ? 1 : (lead >> 4) == 14 ? 2 : 3;
    if (more == 3 && (lead >> 3) != 30) return false;
    constexpr char32_t kSmallest[] = {0, 0x80, 0x800, 0x10000};
    char32_t character = more == 0 ? lead : lead & (0x3f >> more);
    for (int k = 0; k < more; k++, i++) {
      if (i >= text.size() || (static_cast<unsigned char>(text[i]) & 0xc0) != 0x80) return false;
      character = character << 6 | (static_cast<unsigned char>(text[i]) & 0x3f);
    }
    if (character < kSmallest[more] || character > 0x10ffff) return false;
    if (character >= 0xd800 && character <= 0xdfff) return false;
    if (character < 0x10000) {
      *units += static_cast<char16_t>(character);
    } else {
      *units += static_cast<char16_t>(0xd800 + ((character - 0x10000) >> 10));
      *units += static_cast<char16_t>(0xdc00 + ((character - 0x10000) & 0x3ff));
    }
  }
  return true;
}
