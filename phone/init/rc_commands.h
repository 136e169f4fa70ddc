// Runs the commands of .rc actions in the phone's init.
#pragma once

#include <vector>

#include "phone/init/rc_parser.h"
#include "phone/init/services.h"

// Runs each in order. A failure is logged in init.log and the rest still runs, as in Android's
// init.
void run_rc_commands(const std::vector<RcCommand>& commands, Services* services,
                     PropertyArea* properties);
