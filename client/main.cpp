// harrowmossctl: the command-line client of the diagnostic log daemon.
#include "client/commands.h"

int main(int argc, char** argv) {
  environment env = phone_environment();
  const int code = run_client(std::vector<std::string>(argv + 1, argv + argc), env);
  // Output that did not arrive, on a full disk for example, must not look like success.
  return fflush(env.out) == 0 || code != EXIT_OK ? code : EXIT_BAD_REPLY;
}
