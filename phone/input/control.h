// How `finger` tells the input supervisor what to plug and what to send: one request and one reply
// per message on a SOCK_SEQPACKET socket.
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
  kHangUp,  // hangs up only: what a program sees that is late with the removal
  kSend,    // queues the events for everybody who has the device open
  kTear,    // sends half an event, as no healthy driver does
  kDrain,   // replies once they have read all of it
  kList,    // the reply's text is a line per device: node, readers, name
};

// Flags of kPlug.
constexpr uint32_t kWithoutClock = 1;  // refuses EVIOCSCLOCKID
constexpr uint32_t kReadableEnd = 2;   // polls readable after it hung up, as a kernel's device does
                                       // while there are events that nobody has read

constexpr uint32_t kMaxEventsPerRequest = 1024;

// Texts end with NUL. An empty name, location or unique id is one that the device does not have.
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
  char text[4092];  // as much of it as is needed is sent
};
