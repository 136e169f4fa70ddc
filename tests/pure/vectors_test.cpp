// The published protocol vectors against the encoder and decoder.
#include "tests/support/vectors.h"

#include <set>

#include "client/connection/reply.h"
#include "protocol/encode.h"
#include "tests/pure/ctl_support.h"

namespace {

// The argument after "int32 " or "string16 ", or null.
const char* argument(const Vector& vector, size_t index, const char* kind) {
  const std::string head = std::string(kind) + " ";
  if (index >= vector.arguments.size()) return nullptr;
  const std::string& text = vector.arguments[index];
  return text.compare(0, head.size(), head) == 0 ? text.c_str() + head.size() : nullptr;
}

// The arguments for our encoder; false for a vector that it never writes.
bool encoder_values(const Vector& vector, RequestValues* values) {
  if (!vector.encodable || vector.code < 1 || vector.code > 16) return false;
  const RequestArguments kind = kRequestNames[vector.code - 1].arguments;
  const bool both = kind == RequestArguments::kMaskPathInt;
  const bool has_mask = both || kind == RequestArguments::kMask;
  const bool has_path = both || kind == RequestArguments::kPath;
  const char* mask = has_mask ? argument(vector, 0, "int32") : "0";
  const char* path = has_path ? argument(vector, both ? 1 : 0, "string16") : "";
  if (mask == nullptr || path == nullptr) return false;
  values->mask = atoi(mask);
  values->path = path;
  return vector.arguments.size() == static_cast<size_t>(both ? 3 : has_mask + has_path);
}

TEST(Vectors, TheEncoderWritesTheirRequests) {
  const VectorFile file = read_vectors();
  EXPECT_EQ(file.protocol, kProtocolVersion);
  std::set<int32_t> seen;
  for (const Vector& vector : file.vectors) {
    RequestValues values;
    if (!encoder_values(vector, &values)) continue;
    RequestFrame frame;
    std::string error;
    ASSERT_TRUE(
        encode_request(kRequestNames[vector.code - 1], vector.serial, values, &frame, &error))
        << vector.name << ": " << error;
    EXPECT_EQ(frame.bytes, from_hex(vector.request)) << vector.name;
    seen.insert(vector.code);
    size_t end = 0;  // the shown fields cover the frame without gaps
    for (const FrameField& field : frame.fields) {
      EXPECT_EQ(field.offset, end) << vector.name << " " << field.name;
      end += field.size;
    }
    EXPECT_EQ(end, frame.bytes.size()) << vector.name;
  }
  EXPECT_EQ(seen.size(), std::size(kRequestNames)) << "a request has no vector";
}

TEST(Vectors, TheDecoderReadsTheirReplies) {
  for (const Vector& vector : read_vectors().vectors) {
    const bool fixed = vector.reply.find('{') == std::string::npos;
    if (!fixed || vector.reply.empty() || vector.code < 1 || vector.code > 16) continue;
    const std::string bytes = from_hex(vector.reply);
    EXPECT_EQ(int32_at(bytes, 0), static_cast<int32_t>(bytes.size()) - 4) << vector.name;
    Reply answer;
    std::string error;
    EXPECT_TRUE(decode_reply(std::string_view(bytes).substr(4), kRequestNames[vector.code - 1],
                             vector.serial, &answer, &error))
        << vector.name << ": " << error;
  }
}

}  // namespace
