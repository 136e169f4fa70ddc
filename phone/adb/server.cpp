#include "phone/adb/server.h"

#include <fcntl.h>
#include <grp.h>
#include <linux/close_range.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/mount.h>
#include <sys/socket.h>

#include "phone/adb/services.h"
#include "phone/boot/root_layout.h"
#include "phone/init/rc_parser.h"

namespace {

constexpr size_t kBlock = 64 * 1024;
constexpr size_t kMostOut = 4 * kMostPayload;  // unsent; above this reading pauses

// The groups of a phone's shell, and media_rw: on a phone the FUSE server admits the shell.
constexpr const char* kShellGroups[] = {"adb",         "log",      "input",     "inet",
                                        "net_bt",      "sdcard_r", "sdcard_rw", "readproc",
                                        "ext_data_rw", "media_rw"};

// What SELinux hides from adb's shell on a user build.
constexpr const char* kClosedOnUserBuilds[] = {"/dev/socket", "/data/misc/zelkalog"};

bool become_user(bool root, bool debuggable) {
  if (!debuggable && unshare(CLONE_NEWNS) != 0) return false;
  for (const char* path : kClosedOnUserBuilds) {
    if (!debuggable && mount("tmpfs", path, "tmpfs", 0, "mode=0700") != 0 && errno != ENOENT)
      return false;
  }
  std::vector<gid_t> groups;
  for (const char* group : kShellGroups) {
    groups.emplace_back();
    lookup_aid(group, &groups.back());
  }
  const uid_t id = root ? kAidRoot : kAidShell;
  const char* name = root ? "root" : "shell";
  for (const char* key : {"USER", "LOGNAME"}) setenv(key, name, 1);
  return setgroups(groups.size(), groups.data()) == 0 && setgid(id) == 0 && setuid(id) == 0;
}

}  // namespace

AdbServer::AdbServer(Fd listener, std::string banner, bool root, bool debuggable)
    : listener_(std::move(listener)),
      banner_(std::move(banner)),
      root_(root),
      debuggable_(debuggable) {}

void AdbServer::run() {
  // A no-op handler: write() fails with EPIPE. SIG_IGN would be inherited across exec.
  signal(SIGPIPE, [](int) {});
  struct sigaction unwaited = {};
  unwaited.sa_handler = SIG_DFL;
  unwaited.sa_flags = SA_NOCLDWAIT;  // exit statuses are not needed
  sigaction(SIGCHLD, &unwaited, nullptr);
  while (true) turn();
}

void AdbServer::turn() {
  struct Waiting {
    Connection* connection;  // null: the listener
    uint32_t stream;         // 0: the connection itself
  };
  std::vector<struct pollfd> polled = {{listener_.get(), POLLIN, 0}};
  std::vector<Waiting> waiting = {{nullptr, 0}};
  // Descriptors without events are left out: POLLHUP would be reported again and again.
  const auto wait_for = [&](Waiting who, int fd, bool in, bool out) {
    if (!in && !out) return;
    const int events = (in ? POLLIN : 0) | (out ? POLLOUT : 0);
    polled.push_back({fd, static_cast<short>(events), 0});
    waiting.push_back(who);
  };
  for (Connection& c : connections_) {
    wait_for({&c, 0}, c.socket.get(), c.out.size() < kMostOut, !c.out.empty());
    for (const auto& [number, stream] : c.streams)
      wait_for({&c, number}, stream.process.get(), stream.may_send, !stream.pending.empty());
  }
  if (poll(polled.data(), polled.size(), -1) < 0) return;
  for (size_t i = 1; i < polled.size(); i++) {
    if (polled[i].revents == 0) continue;
    Connection* c = waiting[i].connection;
    const auto stream = c->streams.find(waiting[i].stream);
    if (waiting[i].stream == 0) {
      if ((polled[i].revents & ~POLLOUT) != 0) read_messages(c);
    } else if (stream != c->streams.end()) {
      if (!stream->second.pending.empty()) flush(c, stream->first, &stream->second);
      if ((polled[i].revents & ~POLLOUT) != 0 && stream->second.may_send &&
          !read_process(c, stream->first, &stream->second))
        c->streams.erase(stream);
    }
  }
  for (Connection& c : connections_) {
    const ssize_t n = c.out.empty() ? 0 : write(c.socket.get(), c.out.data(), c.out.size());
    if (n > 0) c.out.erase(0, n);
    if (n < 0 && errno != EAGAIN && errno != EINTR) c.lost = true;
    if (c.ending && c.streams.empty() && c.out.empty()) c.lost = true;
  }
  connections_.remove_if([](const Connection& c) { return c.lost; });
  if (polled[0].revents != 0) accept_connection();
}

void AdbServer::accept_connection() {
  const int fd = accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
  if (fd >= 0) connections_.emplace_back().socket.reset(fd);
}

void AdbServer::read_messages(Connection* c) {
  char block[kBlock];
  const ssize_t n = read(c->socket.get(), block, sizeof block);
  if (n < 0 && (errno == EAGAIN || errno == EINTR)) return;
  c->lost = n <= 0;
  if (c->lost) return;
  c->reader.add({block, static_cast<size_t>(n)});
  while (const std::optional<Record> record = c->reader.next()) {
    AdbMessage message;
    c->lost = c->lost || !decode(*record, &message);
    if (c->lost) return;
    take(c, message);
  }
  c->lost = c->lost || c->reader.broken();
}

void AdbServer::take(Connection* c, const AdbMessage& message) {
  if (message.command == four("CNXN")) {
    c->streams.clear();
    c->most = std::min<size_t>(message.arg1, kMostPayload);
    return say(c, four("CNXN"), kProtocolVersion, kMostPayload, banner_);
  }
  if (c->most == 0) return;  // no CNXN yet
  if (message.command == four("OPEN")) return open(c, message);
  const auto found = c->streams.find(message.arg1);
  if (found == c->streams.end()) return;  // already closed by us
  Stream* stream = &found->second;
  if (message.command == four("OKAY")) {
    stream->may_send = true;
  } else if (message.command == four("CLSE")) {
    c->streams.erase(found);
  } else if (message.command == four("WRTE")) {
    if (!stream->pending.empty()) c->lost = true;  // sent before we acknowledged
    stream->pending = message.payload;
    flush(c, found->first, stream);
  }
}

void AdbServer::open(Connection* c, const AdbMessage& message) {
  const AdbService service = parse_service(message.payload);
  const uint32_t number = ++c->last_stream;
  Fd process = service.kind == AdbService::kUnknown ? Fd() : start(service, &c->ending);
  if (!process.ok()) return say(c, four("CLSE"), 0, message.arg0);
  c->streams[number] = {message.arg0, std::move(process), "", true};
  say(c, four("OKAY"), number, message.arg0);
}

// Starts the process of a stream; returns the socket to it, not ok on failure.
Fd AdbServer::start(const AdbService& service, bool* ending) {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) return Fd();
  Fd ours(ends[0]), theirs(ends[1]);
  fcntl(ours.get(), F_SETFL, O_NONBLOCK);
  if (service.kind == AdbService::kRoot || service.kind == AdbService::kUnroot) {
    write_all(theirs.get(), switch_user(service.kind == AdbService::kRoot, ending));
    return ours;
  }
  const pid_t pid = fork();
  if (pid == 0) {
    const int host = STDERR_FILENO + 1;
    if (theirs.get() == host ? fcntl(host, F_SETFD, 0) != 0 : dup2(theirs.get(), host) < 0)
      _exit(1);
    close_range(host + 1, ~0u, 0);  // other connections
    theirs.release();
    ours.release();
    signal(SIGCHLD, SIG_DFL);  // it waits for its command
    if (!become_user(root_, debuggable_)) _exit(1);
    if (service.kind == AdbService::kSync) serve_files(host);
    serve_shell(host, service);
  }
  return pid > 0 ? std::move(ours) : Fd();
}

// The platform's texts. The client waits for the connection to end, then reconnects.
std::string AdbServer::switch_user(bool to_root, bool* switched) {
  if (to_root && !debuggable_) return "adbd cannot run as root in production builds\n";
  if (to_root == root_)
    return to_root ? "adbd is already running as root\n" : "adbd not running as root\n";
  root_ = to_root;
  *switched = true;
  return to_root ? "restarting adbd as root\n" : "restarting adbd as non root\n";
}

void AdbServer::flush(Connection* c, uint32_t number, Stream* stream) {
  const ssize_t n = write(stream->process.get(), stream->pending.data(), stream->pending.size());
  if (n < 0 && (errno == EAGAIN || errno == EINTR)) return;
  stream->pending.erase(0, n < 0 ? stream->pending.size() : n);  // n < 0: it reads no more
  if (stream->pending.empty()) say(c, four("OKAY"), number, stream->remote);
}

// False when the process has closed the stream.
bool AdbServer::read_process(Connection* c, uint32_t number, Stream* stream) {
  char block[kBlock];
  const ssize_t n = read(stream->process.get(), block, std::min(c->most, sizeof block));
  if (n < 0 && (errno == EAGAIN || errno == EINTR)) return true;
  stream->may_send = n <= 0;
  say(c, n > 0 ? four("WRTE") : four("CLSE"), number, stream->remote,
      {block, static_cast<size_t>(std::max<ssize_t>(n, 0))});
  return n > 0;
}

void AdbServer::say(Connection* c, uint32_t command, uint32_t arg0, uint32_t arg1,
                    std::string_view payload) {
  c->out += encode({command, arg0, arg1, std::string(payload)});
}
