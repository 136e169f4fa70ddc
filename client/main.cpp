// harrowmossctl: the command-line client of the diagnostic log daemon.
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include "client/commands.h"

namespace {

// True when the reader of standard output has closed it.
bool reader_is_gone() {
  pollfd entry = {STDOUT_FILENO, POLLOUT, 0};
  return poll(&entry, 1, 0) == 1 && (entry.revents & (POLLERR | POLLHUP)) != 0;
}

}  // namespace

int main(int argc, char** argv) {
  // A closed reader must not end us half-way. A handler, not SIG_IGN: children would inherit that.
  signal(SIGPIPE, [](int) {});
  const bool has_output = fill_standard_streams();
  Environment env = phone_environment();
  env.has_output = has_output;
  const int code = run_client(std::vector<std::string>(argv + 1, argv + argc), env);
  // Output that did not arrive, on a full disk for example, must not look like success. A
  // closed reader is no failure.
  const bool arrived = fflush(env.out) == 0 && ferror(env.out) == 0;
  return code != kExitOk || arrived || reader_is_gone() ? code : kExitBadReply;
}
