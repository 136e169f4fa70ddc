// Commands that send a request to the daemon. Each runs one connection: protocol version first, so
// that an occupied daemon is noticed before anything is asked of it, then the request.
#pragma once

#include <string>
#include <string_view>

#include "client/commands.h"
#include "client/connection/reply.h"
#include "protocol/encode.h"

// Sends `call.what->request` with the arguments of `call` and shows the reply.
int run_request(const Invocation& call, Environment& env);

// Reads the arguments that `call.what->request` takes; bits without a name make a note on env.err.
// False and one line in `error` when one is wrong.
bool read_values(const Invocation& call, Environment& env, RequestValues* values,
                 std::string* error);

// Sends the payload that the arguments spell in hexadecimal, and shows the reply's bytes.
int run_raw(const Invocation& call, Environment& env);

// Why the daemon would refuse the destination `path` by its name (model/destination.h), or "".
std::string check_destination(std::string_view path);

// A warning when `request` (may be null) deletes logs while debug logging is on: the writers go on
// in deleted files. "" otherwise.
std::string loss_while_logging(const RequestName* request, const Environment& env);

// A reply as text and as JSON.
std::string reply_text(const Reply& answer, const RequestName& request);
std::string reply_json(const Reply& answer, const RequestName& request, const std::string& warning);
