// Stand-in for the platform's trace service: takes 4-byte commands on the abstract socket
// "systraceur", as since Android 9, or on /dev/socket/systrace, as before. Writes each packet as a
// line of hex to kSystraceLog.
//
// Properties, read at start: bench.systrace (off: it does not run), bench.systrace.legacy (on: the
// older socket), bench.systrace.accept (never: its listen queue stays full, so a client hangs in
// connect()).
#include <stdio.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "phone/tools/property.h"
#include "phone/util.h"
#include "platform/linux/bench_phone.h"

namespace {

constexpr const char* kSystraceLog = "/dev/bench/systrace.log";
constexpr char kAbstractName[] = "systraceur";
constexpr char kReservedPath[] = "/dev/socket/systrace";
constexpr size_t kPacketMax = 4096;

// The length of an abstract address is significant: no padding.
socklen_t make_address(bool legacy, struct sockaddr_un* address) {
  address->sun_family = AF_UNIX;
  const std::string name =
      legacy ? std::string(kReservedPath) + '\0' : std::string(1, '\0') + kAbstractName;
  name.copy(address->sun_path, name.size());
  return static_cast<socklen_t>(offsetof(struct sockaddr_un, sun_path) + name.size());
}

std::string to_hex(const unsigned char* bytes, ssize_t count) {
  std::string text;
  char digits[4];
  for (ssize_t i = 0; i < count; i++) {
    snprintf(digits, sizeof digits, "%02x", bytes[i]);
    text += digits;
  }
  return text;
}

void serve(int listening) {
  for (;;) {
    const Fd client(accept4(listening, nullptr, nullptr, SOCK_CLOEXEC));
    unsigned char packet[kPacketMax];
    ssize_t count;
    while ((count = recv(client.get(), packet, sizeof packet, 0)) > 0)
      append_file(kSystraceLog, to_hex(packet, count) + "\n");
  }
}

}  // namespace

int main() {
  require_bench_phone();
  PropertyArea properties;
  if (!properties.open() || get_property(properties, "bench.systrace") == "off") return 0;
  const bool never = get_property(properties, "bench.systrace.accept") == "never";
  struct sockaddr_un address = {};
  const socklen_t size =
      make_address(get_property(properties, "bench.systrace.legacy") == "on", &address);
  const auto* raw = reinterpret_cast<const struct sockaddr*>(&address);
  unlink(kReservedPath);
  const Fd listening(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  constexpr int kBacklog = 4;
  if (!listening.ok() || bind(listening.get(), raw, size) != 0 ||
      listen(listening.get(), never ? 0 : kBacklog) != 0)
    return 1;
  if (!never) serve(listening.get());
  const Fd filler(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  if (connect(filler.get(), raw, size) != 0) return 1;
  for (;;) pause();
}
