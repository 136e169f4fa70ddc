// The phone's side of adb: accepts connections and passes bytes between their streams and the
// processes that serve these. One thread; no stream or connection blocks the others.
#pragma once

#include <list>
#include <map>

#include "phone/adb/records.h"
#include "phone/util.h"

class AdbServer {
 public:
  // `listener` is a listening socket. `banner` describes the device. Streams run as root or as the
  // user shell; "root:" and "unroot:" switch that on a debuggable build.
  AdbServer(Fd listener, std::string banner, bool root, bool debuggable);
  [[noreturn]] void run();

 private:
  struct Stream {
    uint32_t remote;      // number on the other side
    Fd process;           // non-blocking
    std::string pending;  // for the process, unwritten; acknowledged when written
    bool may_send;        // our last data is acknowledged
  };
  struct Connection {
    Fd socket;  // non-blocking
    RecordReader reader{kMessageFormat};
    std::string out;                     // unsent
    std::map<uint32_t, Stream> streams;  // by our numbers
    uint32_t last_stream = 0;
    size_t most = 0;      // largest message of the other side; 0: no CNXN yet
    bool ending = false;  // close after the last stream
    bool lost = false;
  };

  void turn();
  void accept_connection();
  void read_messages(Connection* c);
  void take(Connection* c, const AdbMessage& message);
  void open(Connection* c, const AdbMessage& message);
  Fd start(const AdbService& service, bool* ending);
  std::string switch_user(bool to_root, bool* switched);
  void flush(Connection* c, uint32_t number, Stream* stream);
  bool read_process(Connection* c, uint32_t number, Stream* stream);
  static void say(Connection* c, uint32_t command, uint32_t arg0, uint32_t arg1,
                  std::string_view payload = {});

  Fd listener_;
  std::string banner_;
  bool root_, debuggable_;
  std::list<Connection> connections_;
};
