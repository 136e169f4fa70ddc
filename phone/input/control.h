// The protocol between `finger` and the input supervisor: one request and one reply per message on
// a SOCK_SEQPACKET socket.
#pragma once

#include <stdint.h>

constexpr const char* kInputSocket = "/dev/bench/input";
constexpr const char* kInputDirectory = "/dev/input/";

struct InputEvent {
  uint16_t type;
  uint16_t code;
  int32_t value;
};
inline bool operator==(const InputEvent& a, const InputEvent& b) {
  return a.type == b.type && a.code == b.code && a.value == b.value;
}

enum class InputOp : uint32_t {
  kPlug,    // makes the node; EEXIST when it is there
  kUnplug,  // hangs up, then removes the node, as the kernel does
  kHangUp,  // hangs up only, as a program sees it before the node is removed
  kSend,    // queues the events for every reader of the device
  kTear,    // sends half an event, like a broken driver
  kDrain,   // replies once every reader has read everything
  kList,    // the reply's text has a line per device: node, readers, name
};

// Flags of kPlug.
constexpr uint32_t kWithoutClock = 1;  // refuses EVIOCSCLOCKID
constexpr uint32_t kReadableEnd = 2;   // polls readable after a hang-up, as a
                                       // kernel device with unread events does

constexpr uint32_t kMaxEventsPerRequest = 1024;

// Texts end with NUL. An empty name, location or unique id: the device has none.
struct InputRequest {
  InputOp op;
  uint32_t flags;
  char node[32];  // "event3"
  char name[256];
  char location[256];
  char unique_id[256];
  uint32_t count;  // of the events that follow, for kSend
};

struct InputReply {
  int32_t result;   // 0 or an errno value
  char text[4092];  // only the used part is sent
};
