// Opens a session with the daemon.
#pragma once

#include "client/connection/connection.h"
#include "client/support/environment.h"

// Connects and asks for the protocol version, so that an occupied daemon is noticed before anything
// is asked of it. kExitOk: `daemon` may be used, `version` (may be null) is the daemon's, which is
// ours. kExitNoConnection; kExitTimedOut at `deadline`: another client holds the daemon, or it is
// busy; kExitBadReply: it speaks another protocol.
Outcome open_session(const Environment& env, SteadyTime deadline, Connection* daemon,
                     int32_t* version);
