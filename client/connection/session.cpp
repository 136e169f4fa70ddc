#include "client/connection/session.h"

#include "client/connection/reply.h"
#include "protocol/encode.h"
#include "protocol/protocol.h"

namespace {

constexpr int64_t kVersionSerial = 1;
constexpr const RequestName& kVersion = kRequestNames[0];

}  // namespace

Outcome open_session(const Environment& env, SteadyTime deadline, Connection* daemon,
                     int32_t* version) {
  Outcome result = daemon->open(env.dial, deadline);
  if (result.code != kExitOk) return result;

  RequestFrame question;
  encode_request(kVersion, kVersionSerial, {}, &question, &result.error);
  std::string bytes;
  result = daemon->exchange(question.bytes, deadline, nullptr, &bytes);
  if (result.code == kExitTimedOut) {
    result.error =
        "connected, but not served: the daemon serves one client at a time and another "
        "one holds it, or it is busy with a long request";
  }
  if (result.code != kExitOk) return result;
  Reply answer;
  if (!decode_reply(bytes, kVersion, kVersionSerial, &answer, &result.error)) {
    return {kExitBadReply, result.error};
  }
  if (!answer.has_result || answer.number != kProtocolVersion) {
    return {kExitBadReply, "the daemon speaks protocol version " + std::to_string(answer.number) +
                               ", this client " + std::to_string(kProtocolVersion)};
  }
  if (version != nullptr) *version = answer.number;
  return {};
}
