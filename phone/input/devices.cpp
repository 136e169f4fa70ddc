#include "phone/input/devices.h"

#include <fcntl.h>
#include <limits.h>
#include <linux/input.h>
#include <linux/sockios.h>
#include <poll.h>
#include <stddef.h>
#include <stdio.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>

#include <algorithm>

namespace {

constexpr gid_t kAidInput = 1004;
constexpr int kDrainPollMs = 1;
constexpr size_t kEraseAbove = 1 << 20;  // bytes already moved; more are erased from the queue
// Bytes queued for a reader that does not read; more are dropped.
constexpr size_t kQueueLimit = 64 << 20;

}  // namespace

int listen_for_input_requests() {
  struct sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  snprintf(address.sun_path, sizeof(address.sun_path), "%s", kInputSocket);
  Fd fd(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  if (bind(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
      listen(fd.get(), SOMAXCONN) != 0)
    return -1;
  return fd.release();
}

namespace {

// Reads up to `size` bytes of another process's memory, fewer at the end of a mapping. -1 with
// errno.
ssize_t read_memory(pid_t pid, uint64_t address, void* to, size_t size) {
  Fd memory(open(("/proc/" + std::to_string(pid) + "/mem").c_str(), O_RDONLY | O_CLOEXEC));
  return pread(memory.get(), to, size, static_cast<off_t>(address));
}

ssize_t write_memory(pid_t pid, uint64_t address, const void* from, size_t size) {
  // O_WRONLY: not subject to the filter.
  Fd memory(open(("/proc/" + std::to_string(pid) + "/mem").c_str(), O_WRONLY | O_CLOEXEC));
  return pwrite(memory.get(), from, size, static_cast<off_t>(address));
}

ino_t inode_of(pid_t pid, uint64_t fd) {
  struct stat st;
  const std::string path = "/proc/" + std::to_string(pid) + "/fd/" + std::to_string(fd);
  const bool ours = stat(path.c_str(), &st) == 0 && (S_ISFIFO(st.st_mode) || S_ISSOCK(st.st_mode));
  return ours ? st.st_ino : 0;
}

}  // namespace

InputDevices::InputDevices(Fd listener, Fd control)
    : listener_(std::move(listener)), control_(std::move(control)) {
  struct seccomp_notif_sizes sizes = {};
  syscall(SYS_seccomp, SECCOMP_GET_NOTIF_SIZES, 0, &sizes);
  asked_.resize(std::max<size_t>(sizes.seccomp_notif, sizeof(seccomp_notif)));
  answer_.resize(std::max<size_t>(sizes.seccomp_notif_resp, sizeof(seccomp_notif_resp)));
}

InputDevices::Device* InputDevices::find(const std::string& node) {
  for (Device& device : devices_) {
    if (node == device.description.node) return &device;
  }
  return nullptr;
}

InputDevices::Reader* InputDevices::find_reader(ino_t inode, Device** device) {
  for (Device& candidate : devices_) {
    for (Reader& reader : candidate.readers) {
      if (reader.inode != inode) continue;
      *device = &candidate;
      return &reader;
    }
  }
  return nullptr;
}

// False if the process died: its pid may have been reused.
bool InputDevices::still_waits(const seccomp_notif& asked) const {
  return ioctl(listener_.get(), SECCOMP_IOCTL_NOTIF_ID_VALID, &asked.id) == 0;
}

void InputDevices::answer_notification() {
  std::fill(asked_.begin(), asked_.end(), '\0');
  std::fill(answer_.begin(), answer_.end(), '\0');
  auto* asked = reinterpret_cast<seccomp_notif*>(asked_.data());
  auto* answer = reinterpret_cast<seccomp_notif_resp*>(answer_.data());
  if (ioctl(listener_.get(), SECCOMP_IOCTL_NOTIF_RECV, asked) != 0) return;
  int64_t result = 0;
  const Answer kind =
      asked->data.nr == SYS_openat ? answer_open(*asked) : answer_request(*asked, &result);
  if (kind == Answer::kDone) return;
  answer->id = asked->id;
  if (kind == Answer::kContinue) {
    answer->flags = SECCOMP_USER_NOTIF_FLAG_CONTINUE;
  } else if (result < 0) {
    answer->error = static_cast<int32_t>(result);
  } else {
    answer->val = result;
  }
  ioctl(listener_.get(), SECCOMP_IOCTL_NOTIF_SEND, answer);  // fails if the process died
}

InputDevices::Answer InputDevices::answer_open(const seccomp_notif& asked) {
  char path[PATH_MAX];
  const ssize_t size =
      read_memory(static_cast<pid_t>(asked.pid), asked.data.args[1], path, sizeof path);
  const size_t prefix = strlen(kInputDirectory);
  if (!still_waits(asked) || size <= static_cast<ssize_t>(prefix) ||
      memchr(path, '\0', static_cast<size_t>(size)) == nullptr ||
      strncmp(path, kInputDirectory, prefix) != 0)
    return Answer::kContinue;
  Device* device = find(path + prefix);
  if (device == nullptr) return Answer::kContinue;  // the file system gives the error
  int ends[2];
  const bool readable_end = (device->description.flags & kReadableEnd) != 0;
  if ((readable_end ? socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends)
                    : pipe2(ends, O_CLOEXEC)) != 0)
    return Answer::kContinue;
  Fd opened(ends[0]);
  Reader reader;
  reader.end.reset(ends[1]);
  fcntl(ends[1], F_SETFL, O_NONBLOCK);
  struct stat st;
  fstat(opened.get(), &st);
  reader.inode = st.st_ino;
  struct seccomp_notif_addfd handed = {};
  handed.id = asked.id;
  handed.flags = SECCOMP_ADDFD_FLAG_SEND;  // the system call returns the new descriptor
  handed.srcfd = static_cast<uint32_t>(opened.get());
  handed.newfd_flags = static_cast<uint32_t>(asked.data.args[2]) & O_CLOEXEC;
  if (ioctl(listener_.get(), SECCOMP_IOCTL_NOTIF_ADDFD, &handed) >= 0)
    device->readers.push_back(std::move(reader));
  else if (errno == EMFILE)
    return Answer::kContinue;  // the real open() fails with EMFILE too
  return Answer::kDone;
}

// As the kernel does: copies the text with its NUL, cut to the buffer's size; returns the size
// copied.
int64_t InputDevices::give_text(const seccomp_notif& asked, const char* text) {
  if (text[0] == '\0') return -ENOENT;
  const size_t room = _IOC_SIZE(static_cast<uint32_t>(asked.data.args[1]));
  const size_t size = std::min(strlen(text) + 1, room);
  const ssize_t written =
      write_memory(static_cast<pid_t>(asked.pid), asked.data.args[2], text, size);
  return written == static_cast<ssize_t>(size) ? written : -EFAULT;
}

int64_t InputDevices::set_clock(const seccomp_notif& asked, const Device& device, Reader* reader) {
  int32_t clock;
  if (read_memory(static_cast<pid_t>(asked.pid), asked.data.args[2], &clock, sizeof clock) !=
      sizeof clock)
    return -EFAULT;
  const bool known = clock == CLOCK_REALTIME || clock == CLOCK_MONOTONIC || clock == CLOCK_BOOTTIME;
  if (!known || (device.description.flags & kWithoutClock) != 0) return -EINVAL;
  reader->clock = clock;
  return 0;
}

InputDevices::Answer InputDevices::answer_request(const seccomp_notif& asked, int64_t* result) {
  Device* device = nullptr;
  Reader* reader =
      find_reader(inode_of(static_cast<pid_t>(asked.pid), asked.data.args[0]), &device);
  if (reader == nullptr || !still_waits(asked)) return Answer::kContinue;
  const uint32_t request = static_cast<uint32_t>(asked.data.args[1]);
  if (request == EVIOCSCLOCKID) {
    *result = set_clock(asked, *device, reader);
    return Answer::kResult;
  }
  const char* text = "";
  if (_IOC_NR(request) == _IOC_NR(EVIOCGNAME(0))) text = device->description.name;
  if (_IOC_NR(request) == _IOC_NR(EVIOCGPHYS(0))) text = device->description.location;
  if (_IOC_NR(request) == _IOC_NR(EVIOCGUNIQ(0))) text = device->description.unique_id;
  *result = give_text(asked, text);
  return Answer::kResult;
}

int InputDevices::plug(const InputRequest& request) {
  if (find(request.node) != nullptr) return EEXIST;
  // Register before the node appears: a watcher of the directory opens it at once.
  devices_.push_back({request, {}});
  const std::string path = std::string(kInputDirectory) + request.node;
  Fd node(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0660));
  if (node.ok()) {
    (void)!fchown(node.get(), 0, kAidInput);
    return 0;
  }
  const int error = errno;
  devices_.pop_back();
  return error;
}

// Each reader gets the time of its own clock.
void InputDevices::send(Device* device, const InputEvent* events, uint32_t count) {
  for (Reader& reader : device->readers) {
    if (reader.queue.size() > kQueueLimit) continue;
    struct timespec now;
    clock_gettime(reader.clock, &now);
    for (uint32_t i = 0; i < count; i++) {
      struct input_event event = {};
      event.input_event_sec = now.tv_sec;
      event.input_event_usec = now.tv_nsec / 1000;
      event.type = events[i].type;
      event.code = events[i].code;
      event.value = events[i].value;
      reader.queue.append(reinterpret_cast<const char*>(&event), sizeof event);
    }
  }
  device->readers.remove_if([](Reader& reader) { return !flush(&reader); });
}

// Moves whole events into the pipe. False when the reader is gone.
bool InputDevices::flush(Reader* reader) {
  bool alive = true;
  while (!reader->queue_moved()) {
    // Writes up to PIPE_BUF are atomic: no reader sees half an event.
    constexpr size_t kWhole = PIPE_BUF / sizeof(struct input_event) * sizeof(struct input_event);
    const size_t size = std::min(kWhole, reader->queue.size() - reader->moved);
    const ssize_t written = write(reader->end.get(), reader->queue.data() + reader->moved, size);
    if (written <= 0) {
      alive = errno == EAGAIN;
      break;
    }
    reader->moved += static_cast<size_t>(written);
  }
  if (reader->queue_moved() || reader->moved > kEraseAbove) {
    reader->queue.erase(0, reader->moved);
    reader->moved = 0;
  }
  return alive;
}

bool InputDevices::has_read_all(const Device& device) {
  return std::all_of(device.readers.begin(), device.readers.end(), [](const Reader& reader) {
    int unread = 0, unsent = 0;
    ioctl(reader.end.get(), FIONREAD, &unread);  // a pipe
    ioctl(reader.end.get(), SIOCOUTQ, &unsent);  // a socket
    return reader.queue_moved() && unread == 0 && unsent == 0;
  });
}

int InputDevices::perform(const InputRequest& request, const InputEvent* events,
                          std::string* text) {
  if (request.op == InputOp::kPlug) return plug(request);
  if (request.op == InputOp::kList) {
    for (const Device& device : devices_)
      *text += std::string(device.description.node) + " " + std::to_string(device.readers.size()) +
               " " + device.description.name + "\n";
    return 0;
  }
  Device* device = find(request.node);
  if (device == nullptr) return ENODEV;
  if (request.op == InputOp::kSend) send(device, events, request.count);
  if (request.op == InputOp::kTear) {
    constexpr char kHalf[sizeof(struct input_event) / 2] = {};
    for (Reader& reader : device->readers) {
      if (write(reader.end.get(), kHalf, sizeof kHalf) != sizeof kHalf) return EAGAIN;
    }
  }
  if (request.op == InputOp::kHangUp || request.op == InputOp::kUnplug) device->readers.clear();
  if (request.op == InputOp::kUnplug) {
    const std::string path = std::string(kInputDirectory) + request.node;
    devices_.remove_if([device](const Device& each) { return &each == device; });
    if (unlink(path.c_str()) != 0) return errno;
  }
  return 0;
}

void InputDevices::accept_connection() {
  Fd fd(accept4(control_.get(), nullptr, nullptr, SOCK_CLOEXEC));
  if (fd.ok()) connections_.push_back({std::move(fd), ""});
}

namespace {

void reply(int fd, int result, const std::string& text) {
  InputReply message = {};
  message.result = result;
  const size_t length = std::min(text.size(), sizeof message.text - 1);
  memcpy(message.text, text.data(), length);
  send(fd, &message, offsetof(InputReply, text) + length + 1, MSG_NOSIGNAL);
}

}  // namespace

bool InputDevices::serve(Connection* connection) {
  struct {
    InputRequest request;
    InputEvent events[kMaxEventsPerRequest];
  } message;
  const ssize_t size = recv(connection->fd.get(), &message, sizeof message, 0);
  InputRequest& request = message.request;
  if (size < static_cast<ssize_t>(sizeof request)) return false;
  const size_t carried = (static_cast<size_t>(size) - sizeof request) / sizeof(InputEvent);
  if (request.count > carried) return false;
  for (char* end :
       {request.node + sizeof request.node, request.name + sizeof request.name,
        request.location + sizeof request.location, request.unique_id + sizeof request.unique_id})
    end[-1] = '\0';
  if (request.op == InputOp::kDrain && find(request.node) != nullptr) {
    connection->draining = request.node;
    return true;
  }
  std::string text;
  const int result = perform(request, message.events, &text);
  reply(connection->fd.get(), result, text);
  return true;
}

void InputDevices::end_drains() {
  for (Connection& connection : connections_) {
    if (connection.draining.empty()) continue;
    const Device* device = find(connection.draining);
    if (device != nullptr && !has_read_all(*device)) continue;
    connection.draining.clear();
    reply(connection.fd.get(), device == nullptr ? ENODEV : 0, "");
  }
}

void InputDevices::run() {
  while (true) {
    std::vector<struct pollfd> polled = {{listener_.get(), POLLIN, 0}, {control_.get(), POLLIN, 0}};
    bool drains = false;
    for (const Connection& connection : connections_) {
      polled.push_back({connection.fd.get(), POLLIN, 0});
      drains = drains || !connection.draining.empty();
    }
    for (const Device& device : devices_) {
      // POLLERR, reported without request: the reader is gone.
      for (const Reader& reader : device.readers)
        polled.push_back(
            {reader.end.get(), static_cast<short>(reader.queue_moved() ? 0 : POLLOUT), 0});
    }
    if (poll(polled.data(), polled.size(), drains ? kDrainPollMs : -1) < 0) continue;
    // polled[] is in the order of the lists: evaluate it before serving changes them.
    size_t at = 2;
    std::vector<Connection*> asking;
    for (Connection& connection : connections_) {
      if (polled[at++].revents != 0) asking.push_back(&connection);
    }
    for (Device& device : devices_) {
      device.readers.remove_if([&](Reader& reader) {
        const short ready = polled[at++].revents;
        return (ready & POLLERR) != 0 || (ready != 0 && !flush(&reader));
      });
    }
    for (Connection* connection : asking) {
      if (!serve(connection))
        connections_.remove_if([&](const Connection& each) { return &each == connection; });
    }
    end_drains();
    if (polled[0].revents == POLLHUP) return;
    if ((polled[0].revents & POLLIN) != 0) answer_notification();
    if (polled[1].revents != 0) accept_connection();
  }
}
