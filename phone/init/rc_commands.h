// The commands of .rc actions, carried out by the phone's init.
#pragma once

#include <vector>

#include "phone/init/rc_parser.h"
#include "phone/init/services.h"

// Runs each in order. A failing one is logged (init.log) and the rest goes on, as in Android's
// init.
void run_rc_commands(const std::vector<RcCommand>& commands, Services* services,
                     PropertyArea* properties);
