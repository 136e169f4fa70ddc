#include "client/connection/reply.h"

namespace {

uint64_t little_endian(std::string_view data, size_t offset, size_t bytes) {
  uint64_t value = 0;
  for (size_t i = bytes; i-- > 0;) {
    value = value << 8 | static_cast<unsigned char>(data[offset + i]);
  }
  return value;
}

std::string wrong_size(std::string_view data, const char* kind) {
  return "a reply of " + std::to_string(data.size()) + " bytes cannot hold " + kind;
}

// An int32 length and a CString of that length, padded with zeros, and nothing else.
bool decode_text(std::string_view data, Reply* out, std::string* error) {
  std::string_view rest = data.substr(kReplyMin);
  if (rest.size() < 8) {  // the length and the shortest padded string
    *error = wrong_size(data, "a text");
    return false;
  }
  const int32_t length = int32_at(rest, 0);
  rest.remove_prefix(4);
  const size_t text = static_cast<size_t>(length);
  if (length < 0 || rest.size() != (text / 4 + 1) * 4) {
    *error = "the text's length " + std::to_string(length) + " does not match the " +
             std::to_string(rest.size()) + " bytes behind it";
    return false;
  }
  if (rest.find('\0') != text || rest.find_first_not_of('\0', text) != std::string_view::npos) {
    *error = "the text does not end where its length says";
    return false;
  }
  out->text.assign(rest.data(), text);
  return true;
}

}  // namespace

int32_t int32_at(std::string_view data, size_t offset) {
  return static_cast<int32_t>(little_endian(data, offset, 4));
}

bool decode_reply(std::string_view data, const RequestName& request, int64_t serial, Reply* out,
                  std::string* error) {
  *out = {};
  if (data.size() < kReplyMin) {
    *error = wrong_size(data, "a code and a serial");
    return false;
  }
  out->code = int32_at(data, 0);
  out->serial = static_cast<int64_t>(little_endian(data, 4, 8));
  if (out->code != request.code || out->serial != serial) {
    *error = "the reply belongs to request " + std::to_string(out->code) + " with serial " +
             std::to_string(out->serial) + ", not to " + std::to_string(request.code) + " with " +
             std::to_string(serial);
    return false;
  }
  out->has_result = data.size() > kReplyMin;
  if (!out->has_result) return true;
  if (data.size() == kReplyMin + 4) out->number = int32_at(data, kReplyMin);
  if (request.reply == ReplyFields::kInt && data.size() == kReplyMin + 4) return true;
  // A daemon that does not know a code answers every such request with a bare -1.
  out->unknown = data.size() == kReplyMin + 4 && out->number == -1;
  if (out->unknown) return true;
  if (request.reply == ReplyFields::kText) return decode_text(data, out, error);
  const bool number = request.reply == ReplyFields::kInt;
  *error = wrong_size(data, number ? "just a number" : "nothing behind its serial");
  return false;
}
