// Commands that look at the phone themselves and ask the daemon nothing.
#pragma once

#include "client/commands.h"

int run_status(const invocation& call, Environment& env);
int run_types(const invocation& call, Environment& env);
int run_runs(const invocation& call, Environment& env);
int run_help(const invocation& call, Environment& env);
