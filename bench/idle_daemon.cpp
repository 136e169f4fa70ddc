// The daemon with as many idle workers as the property bench.workers says: the memory and latency
// of workers without catchers.
#include <cutils/properties.h>
#include <cutils/sockets.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "base/process.h"
#include "daemon/harrowmoss.h"
#include "debuglog/workers.h"
#include "protocol/protocol.h"
#include "selflog/props.h"

int main() {
  property_set("persist.sys.logger.enable", "on");
  s_harrowmossd_pid = getpid();
  prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0);
  const int listener = android_get_control_socket(kControlSocketName);
  close_in_children(listener);
  block_handled_signals();
  install_signal_handlers();
  initialize_globals();
  for (int i = get_int_prop("bench.workers", 0); i > 0; i--) {
    const pid_t pid = fork_process(Group::kNew);
    if (pid == 0) {
      set_process_name("idle");
      for (;;) pause();
    }
    add_to_debug_group(pid);
  }
  if (listen(listener, 5) != 0) return 1;
  serve_connections(listener);
}
