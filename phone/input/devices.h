// The devices of the input supervisor. Answers the filter's notifications and `finger`'s requests.
#pragma once

#include <linux/seccomp.h>
#include <stdint.h>
#include <sys/types.h>
#include <time.h>

#include <list>
#include <string>
#include <vector>

#include "phone/input/control.h"
#include "phone/util.h"

// The listening socket for `finger`; -1 with errno.
int listen_for_input_requests();

class InputDevices {
 public:
  // `listener` is the seccomp filter's, `control` listens for requests. SIGPIPE must be ignored.
  InputDevices(Fd listener, Fd control);

  // Serves until the last supervised process is gone.
  void run();

 private:
  // One open() of a device.
  struct Reader {
    Fd end;                            // write end; the opener has the read end
    ino_t inode = 0;                   // of the read end: identifies a descriptor of the opener
    clockid_t clock = CLOCK_REALTIME;  // of the time stamps; the kernel's default
    std::string queue;                 // events that did not fit into the pipe,
    size_t moved = 0;                  // and how many bytes of them have been moved into it since
    bool queue_moved() const { return moved == queue.size(); }
  };
  struct Device {
    InputRequest description;
    std::list<Reader> readers;
  };
  // A connected `finger`. It waits for each reply: one request at a time.
  struct Connection {
    Fd fd;
    std::string draining;  // the node that it drains; "": none
  };
  enum class Answer { kContinue, kResult, kDone };

  Device* find(const std::string& node);
  Reader* find_reader(ino_t inode, Device** device);

  void answer_notification();
  Answer answer_open(const seccomp_notif& asked);
  Answer answer_request(const seccomp_notif& asked, int64_t* result);
  bool still_waits(const seccomp_notif& asked) const;
  int64_t give_text(const seccomp_notif& asked, const char* text);
  int64_t set_clock(const seccomp_notif& asked, const Device& device, Reader* reader);

  void accept_connection();
  // False when the connection is closed.
  bool serve(Connection* connection);
  int perform(const InputRequest& request, const InputEvent* events, std::string* text);
  int plug(const InputRequest& request);
  void send(Device* device, const InputEvent* events, uint32_t count);
  static bool flush(Reader* reader);
  static bool has_read_all(const Device& device);
  void end_drains();

  Fd listener_, control_;
  std::vector<char> asked_, answer_;  // sized as the kernel says
  std::list<Device> devices_;
  std::list<Connection> connections_;
};
