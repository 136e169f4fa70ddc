// finger: plugs virtual input devices into the bench phone and sends touch events from them.
#include <errno.h>
#include <stddef.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <time.h>

#include <algorithm>

#include "phone/input/control.h"
#include "phone/input/touch_sequences.h"
#include "phone/util.h"

namespace {

constexpr const char* kUsage = R"(usage: finger COMMAND ARGUMENTS...
       finger              reads commands from standard input, one per line; '#' starts a comment

A phone booted with --input has exactly the input devices plugged in here.

  plug NODE NAME [LOCATION [UNIQUE_ID]]   makes /dev/input/NODE
  plug-without-clock NODE NAME            the same, but EVIOCSCLOCKID fails
  plug-readable-end NODE NAME             the same, but after a hang-up it polls readable
  unplug NODE                             hangs up and removes the node
  hangup NODE                             hangs up and leaves the node
  list                                    node, number of readers, name of every device
  tap NODE X Y
  swipe NODE X1 Y1 X2 Y2 STEPS
  fingers NODE COUNT STEPS                up to ten contacts, side by side
  count NODE FIRST COUNT                  events ABS_X with the values FIRST, FIRST + 1, ...
  event NODE TYPE CODE VALUE              one event: names or numbers
  replay NODE LOG [second]                the events of a touch log, with its own timing or at `rate`
  tear NODE                               half an event, like a broken driver
  drain NODE                              waits until the readers have read all that was sent
  rate N                                  N events a second from here on; 0: as fast as possible
  wait MS
)";

using Words = std::vector<std::string>;

constexpr InputEvent kPacketEnd = {0, 0, 0};  // EV_SYN SYN_REPORT

struct Session {
  Fd socket;
  long rate = -1;  // events a second; 0: no pause; -1: not set
};

int64_t now_us() {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * INT64_C(1000000) + now.tv_nsec / 1000;
}

void sleep_until_us(int64_t due) {
  const struct timespec until = {due / 1000000, due % 1000000 * 1000};
  while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
  }
}

bool complain(const std::string& what) {
  fprintf(stderr, "finger: %s\n", what.c_str());
  return false;
}

bool ask(Session* session, InputOp op, const std::string& node, InputRequest request,
         const InputEvent* events = nullptr, uint32_t count = 0) {
  request.op = op;
  request.count = count;
  if (node.empty() || node.size() >= sizeof request.node || node.find('/') != std::string::npos)
    return complain("\"" + node + "\" is not a node name");
  memcpy(request.node, node.c_str(), node.size() + 1);
  struct iovec parts[] = {{&request, sizeof request},
                          {const_cast<InputEvent*>(events), count * sizeof(InputEvent)}};
  struct msghdr message = {};
  message.msg_iov = parts;
  message.msg_iovlen = 2;
  InputReply reply = {};
  if (sendmsg(session->socket.get(), &message, MSG_NOSIGNAL) < 0 ||
      recv(session->socket.get(), &reply, sizeof reply, 0) < static_cast<ssize_t>(sizeof(int32_t)))
    return complain(errno_text("the input supervisor does not answer"));
  if (reply.result != 0) {
    errno = reply.result;
    return complain(errno_text(node));
  }
  fputs(reply.text, stdout);
  return true;
}

bool send_events(Session* session, const std::string& node, const InputEvent* events, size_t size) {
  for (size_t at = 0; at < size; at += kMaxEventsPerRequest) {
    const auto count = static_cast<uint32_t>(std::min<size_t>(size - at, kMaxEventsPerRequest));
    if (!ask(session, InputOp::kSend, node, {}, events + at, count)) return false;
  }
  return true;
}

// Sends packet by packet, as a driver does, or single events, at the session's rate.
bool play(Session* session, const std::string& node, const InputEvents& events,
          bool packets = true) {
  if (session->rate <= 0) return send_events(session, node, events.data(), events.size());
  const int64_t start = now_us();
  for (size_t at = 0; at < events.size();) {
    size_t end = at + 1;
    while (packets && end < events.size() && !(events[end - 1] == kPacketEnd)) end++;
    sleep_until_us(start + static_cast<int64_t>(at) * 1000000 / session->rate);
    if (!send_events(session, node, &events[at], end - at)) return false;
    at = end;
  }
  return true;
}

bool replay(Session* session, const Words& words) {
  const bool second = words.size() == 4;
  errno = 0;
  const std::string text = read_file(words[2]);
  if (errno != 0) return complain(errno_text(words[2]));
  InputEvents events;
  std::vector<int64_t> times;
  for (const std::string& line : split(text, "\n")) {
    LoggedEvent logged;
    if (!read_log_line(line, &logged) || logged.second_touch != second) continue;
    events.push_back(logged.event);
    times.push_back(logged.microseconds);
  }
  if (session->rate >= 0) return play(session, words[1], events);
  const int64_t start = now_us();
  for (size_t i = 0; i < events.size(); i++) {
    sleep_until_us(start + times[i] - times[0]);
    if (!send_events(session, words[1], &events[i], 1)) return false;
  }
  return true;
}

bool plug(Session* session, const Words& words) {
  InputRequest request = {};
  if (words[0] == "plug-without-clock") request.flags = kWithoutClock;
  if (words[0] == "plug-readable-end") request.flags = kReadableEnd;
  char* const fields[] = {request.name, request.location, request.unique_id};
  static_assert(sizeof request.name == sizeof request.unique_id, "all of one size");
  for (size_t i = 2; i < words.size(); i++) {
    if (words[i].size() >= sizeof request.name) return complain("too long: " + words[i]);
    memcpy(fields[i - 2], words[i].c_str(), words[i].size() + 1);
  }
  return ask(session, InputOp::kPlug, words[1], request);
}

template <InputOp Op>
bool simple(Session* session, const Words& words) {
  return ask(session, Op, words.size() > 1 ? words[1] : "-", {});
}

int number(const Words& words, size_t at) {
  return static_cast<int>(strtol(words[at].c_str(), nullptr, 0));
}

struct Command {
  const char* name;
  size_t least, most;  // words, including the command
  bool (*run)(Session*, const Words&);
};

// clang-format off
const Command kCommands[] = {
    {"plug", 3, 5, plug},
    {"plug-without-clock", 3, 5, plug},
    {"plug-readable-end", 3, 5, plug},
    {"unplug", 2, 2, simple<InputOp::kUnplug>},
    {"hangup", 2, 2, simple<InputOp::kHangUp>},
    {"tear", 2, 2, simple<InputOp::kTear>},
    {"drain", 2, 2, simple<InputOp::kDrain>},
    {"list", 1, 1, simple<InputOp::kList>},
    {"tap", 4, 4, [](Session* s, const Words& w) {
       return play(s, w[1], tap({number(w, 2), number(w, 3)}));
     }},
    {"swipe", 7, 7, [](Session* s, const Words& w) {
       return play(s, w[1], swipe({number(w, 2), number(w, 3)}, {number(w, 4), number(w, 5)},
                                  std::max(1, number(w, 6))));
     }},
    {"fingers", 4, 4, [](Session* s, const Words& w) {
       return play(s, w[1], many_contacts(number(w, 2), number(w, 3)));
     }},
    {"count", 4, 4, [](Session* s, const Words& w) {
       return play(s, w[1], numbered(number(w, 2), number(w, 3)), false);
     }},
    {"event", 5, 5, [](Session* s, const Words& w) {
       InputEvent event;
       if (!read_event(w[2], w[3], w[4], &event)) return complain("no such event");
       return play(s, w[1], {event});
     }},
    {"replay", 3, 4, replay},
    {"rate", 2, 2, [](Session* s, const Words& w) {
       return parse_number(w[1], 0, 10000000, &s->rate) || complain("rate needs a number");
     }},
    {"wait", 2, 2, [](Session*, const Words& w) {
       sleep_until_us(now_us() + number(w, 1) * INT64_C(1000));
       return true;
     }},
};
// clang-format on

bool run(Session* session, const Words& words) {
  if (words.empty() || words[0][0] == '#') return true;
  for (const Command& command : kCommands) {
    if (words[0] != command.name) continue;
    if (words.size() >= command.least && words.size() <= command.most)
      return command.run(session, words);
    return complain(words[0] + ": wrong number of words");
  }
  return complain("no command " + words[0]);
}

// Stops at the first line that fails.
bool run_script(Session* session) {
  char line[1024];
  while (fgets(line, sizeof line, stdin) != nullptr) {
    if (!run(session, split(line, " \t\n"))) return false;
    fflush(stdout);
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  const Words words(argv + 1, argv + argc);
  if (!words.empty() && (words[0] == "--help" || words[0] == "-h")) {
    fputs(kUsage, stdout);
    return 0;
  }
  Session session;
  struct sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  snprintf(address.sun_path, sizeof(address.sun_path), "%s", kInputSocket);
  session.socket.reset(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  if (connect(session.socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    complain(errno_text("no input supervisor (boot the phone with --input)"));
    return 1;
  }
  return (words.empty() ? run_script(&session) : run(&session, words)) ? 0 : 1;
}
