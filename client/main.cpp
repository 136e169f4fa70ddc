// harrowmossctl: the command-line client of the diagnostic log daemon.
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include "client/commands.h"

namespace {

// True when nobody is left to read standard output.
bool reader_is_gone() {
  pollfd entry = {STDOUT_FILENO, POLLOUT, 0};
  return poll(&entry, 1, 0) == 1 && (entry.revents & (POLLERR | POLLHUP)) != 0;
}

}  // namespace

int main(int argc, char** argv) {
  // Who stops reading does not stop us half-way. Not ignored: our tools would inherit that.
  signal(SIGPIPE, [](int) {});
  const bool has_output = fill_standard_streams();
  Environment env = phone_environment();
  env.has_output = has_output;
  const int code = run_client(std::vector<std::string>(argv + 1, argv + argc), env);
  // Output that did not arrive, on a full disk for example, must not look like success. A reader
  // who has left wants none.
  const bool arrived = fflush(env.out) == 0 && ferror(env.out) == 0;
  return code != kExitOk || arrived || reader_is_gone() ? code : kExitBadReply;
}
