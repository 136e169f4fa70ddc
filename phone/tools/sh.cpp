// /system/bin/sh and /bin/sh of a bench phone: notes the call in the journal and becomes mksh,
// Android's shell. argv[0] is kept, mksh looks at it.
#include <stdio.h>
#include <string.h>

#include "phone/tools/journal.h"

static constexpr const char* kShell = "/system/bin/sh";
static constexpr const char* kRealShell = "/system/bin/mksh";

int main(int argc, char** argv) {
  journal_call(kShell, argc, argv);
  execv(kRealShell, argv);
  fprintf(stderr, "sh: %s: %s\n", kRealShell, strerror(errno));
  return 127;
}
