// The page about a run.
#pragma once

#include "client/commands.h"
#include "client/reader/run_source.h"

// Reads the whole run and makes its page; `word` is what the page's commands call the run.
std::string make_page(const Environment& env, const RunSource& source, const std::string& word);

// `view`: EXIT_USAGE when there is no such run or no place to write to, EXIT_FAILED when the page
// cannot be written, which is removed then.
int run_view(const Invocation& call, Environment& env);
