// Logger types and feedback selections by name.
#pragma once

#include "client/commands.h"

// `types`.
int run_types(const Invocation& call, Environment& env);
