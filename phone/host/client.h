// A raw client of the control socket, on the host. It knows bytes only: tests compare replies with
// bytes written by hand, so that no code of the daemon or of harrowmossctl checks itself.
#pragma once

#include <stdint.h>

#include <string>
#include <string_view>

#include "phone/host/phone.h"
#include "phone/util.h"

// The low `bytes` bytes of `value`, lowest first.
std::string little_endian(uint64_t value, int bytes);

// Bytes as hex digits, "0100ff", and back; blanks are skipped. A wrong digit is a failure.
std::string hex(std::string_view bytes);
std::string from_hex(std::string_view digits);

// A payload after its 2-byte length.
std::string frame(std::string_view payload);
// The frame of one request: code, serial, and `arguments` as they are.
std::string request(int32_t code, int64_t serial, std::string_view arguments = "");
// A String16 argument; ASCII only.
std::string string16(std::string_view ascii);

class Client {
 public:
  enum class Wait { kToConnect, kNotToConnect };  // when the socket's backlog is full

  // Connects to the phone's daemon; see connected().
  explicit Client(const Phone& phone, Wait wait = Wait::kToConnect);

  bool connected() const { return fd_.ok(); }
  // False when the peer is gone or does not read within the limit. No SIGPIPE.
  bool send(std::string_view bytes, int limit_ms = kOwedMs);
  // The bytes received until there were `count`, the peer closed, or the limit passed.
  std::string receive(size_t count, int limit_ms = kOwedMs);
  // One reply with its 4-byte size; less when it is cut off.
  std::string reply(int limit_ms = kOwedMs);
  // True when the peer closes within the limit and sends nothing before.
  bool closed_by_peer(int limit_ms = kOwedMs);
  void close() { fd_.reset(); }
  // Shuts down the sending side.
  void end_sending();

 private:
  Fd fd_;
};

// Connects, sends one request and returns, in hex, what follows the echoed code and serial in the
// reply. A cut reply or a wrong echo is a failure and gives "".
std::string ask(const Phone& phone, int32_t code, std::string_view arguments = "",
                int limit_ms = kOwedMs);
