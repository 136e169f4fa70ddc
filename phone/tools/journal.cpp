// journal: writes the call of a stand-in that is a shell script: `journal "$0" "$@"`. The line has
// the pids of the script and its parent.
#include "phone/tools/journal.h"

#include <stdio.h>

#include "phone/util.h"

namespace {

// The fourth field of /proc/PID/stat, searched from the last ')': the name can contain anything.
pid_t parent_of(pid_t pid) {
  const std::string stat = read_file("/proc/" + std::to_string(pid) + "/stat");
  const size_t name_end = stat.rfind(')');
  int parent = 0;
  if (name_end != std::string::npos) sscanf(stat.c_str() + name_end, ") %*c %d", &parent);
  return parent;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    fprintf(stderr, "usage: journal PROGRAM [ARGUMENT...]\n");
    return 2;
  }
  const pid_t script = getppid();
  BenchCall call{script, parent_of(script), argv[1], {argv + 1, argv + argc}};
  return append_file(kCallsLog, format_call(call)) ? 0 : 1;
}
