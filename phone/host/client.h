// A raw client of the control socket, on the host: bytes out, bytes in, and no idea of what they
// mean. Tests compare replies with bytes written by hand, so that no code of the daemon's or of
// harrowmossctl's judges itself.
#pragma once

#include <stdint.h>

#include <string>
#include <string_view>

#include "phone/host/phone.h"
#include "phone/util.h"

// The `bytes` low bytes of `value`, the lowest first.
std::string little_endian(uint64_t value, int bytes);

// "01 00 ff" for bytes, without the blanks: "0100ff". And back; a wrong digit is trouble.
std::string hex(std::string_view bytes);
std::string from_hex(std::string_view digits);

// A payload with its 2-byte length in front, whatever it is.
std::string frame(std::string_view payload);
// The frame of one request: code, serial, and `arguments` as they are.
std::string request(int32_t code, int64_t serial, std::string_view arguments = "");
// A String16 argument; ASCII only.
std::string string16(std::string_view ascii);

class Client {
 public:
  enum class Wait { kToConnect, kNotToConnect };  // when there are too many before it

  // Connects to the phone's daemon; connected() tells whether that worked.
  explicit Client(const Phone& phone, Wait wait = Wait::kToConnect);

  bool connected() const { return fd_.ok(); }
  // False when the peer has gone or does not read within the limit. Raises no SIGPIPE.
  bool send(std::string_view bytes, int limit_ms = kOwedMs);
  // What came until there were `count` bytes, the peer closed, or the limit passed.
  std::string receive(size_t count, int limit_ms = kOwedMs);
  // One reply, its 4-byte size included; less when it did not come whole.
  std::string reply(int limit_ms = kOwedMs);
  // True when the peer closes within the limit without another byte.
  bool closed_by_peer(int limit_ms = kOwedMs);
  void close() { fd_.reset(); }
  // Nothing more will be sent; replies still come.
  void end_sending();

 private:
  Fd fd_;
};

// Connects, sends one request and returns the reply's bytes behind the echoed code and serial, in
// hex. Anything but a whole reply with that echo is trouble, and "".
std::string ask(const Phone& phone, int32_t code, std::string_view arguments = "",
                int limit_ms = kOwedMs);
