// One archive of a run or a bundle.
#pragma once

#include "client/commands.h"

// `pack`: writes a .tar.gz with the phone's own tar and gzip, its manifest first. It appears under
// its name only when it is whole and on the disk. kExitUsage when there is no such run or directory
// or the run is still being captured; kExitFailed when room does not suffice or a tool fails.
int run_pack(const Invocation& call, Environment& env);
