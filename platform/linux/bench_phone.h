// Tells a bench phone from any other machine. The platform layer runs as root and the daemon on top
// of it removes directories such as /data/anr: neither may ever work on a developer's own root.
#pragma once

// Present only in a bench phone; the launcher makes it.
constexpr const char* kBenchPhoneMarker = "/dev/bench/marker";

// Ends the process with status 125 and one clear line on standard error outside a bench phone. The
// look is made once per process; no system call afterwards.
void require_bench_phone();
