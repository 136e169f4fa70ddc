// The opening of every conversation with the daemon.
#pragma once

#include "client/connection/connection.h"
#include "client/support/environment.h"

// Connects and asks for the protocol version, so that an occupied daemon is noticed before anything
// is asked of it. EXIT_OK: `daemon` may be used, `version` (may be null) is the daemon's, which is
// ours. EXIT_NO_CONNECTION; EXIT_TIMED_OUT at `deadline`: another client holds the daemon, or it is
// busy; EXIT_BAD_REPLY: it speaks otherwise.
Outcome open_session(const Environment& env, SteadyTime deadline, Connection* daemon,
                     int32_t* version);
