// /system/bin/sh and /bin/sh of a bench phone: journals the call and executes mksh, Android's
// shell, with argv[0] kept, because mksh evaluates it.
#include <stdio.h>
#include <string.h>

#include "phone/tools/journal.h"

namespace {

constexpr const char* kShell = "/system/bin/sh";
constexpr const char* kRealShell = "/system/bin/mksh";

}  // namespace

int main(int argc, char** argv) {
  journal_call(kShell, argc, argv);
  execv(kRealShell, argv);
  fprintf(stderr, "sh: %s: %s\n", kRealShell, strerror(errno));
  return 127;
}
