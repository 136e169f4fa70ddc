// Commands that send a request to the daemon. Each runs one connection: protocol version first, so
// that an occupied daemon is noticed before anything is asked of it, then the request.
#pragma once

#include <string>
#include <string_view>

#include "client/commands.h"
#include "client/connection/reply.h"

// Sends `call.what->request` with the arguments of `call` and shows the reply.
int run_request(const Invocation& call, Environment& env);

// Sends the payload that the arguments spell in hexadecimal, and shows the reply's bytes.
int run_raw(const Invocation& call, Environment& env);

// Why the daemon would refuse the destination `path` by its name (model/destination.h), or "".
std::string check_destination(std::string_view path);

// What `request` (may be null) destroys beside what it says, as debug logging is on; "" when it
// does not. The daemon's writers keep the files that it deletes.
std::string loss_while_logging(const RequestName* request, const Environment& env);

// What people and scripts read about a reply.
std::string reply_text(const Reply& answer, const RequestName& request);
std::string reply_json(const Reply& answer, const RequestName& request, const std::string& warning);
