// Failures of a bench phone itself, as seen by the host.
#pragma once

#include <string>

// Called with one line when a phone does not come up, hangs or sends garbage. By default prints the
// line to standard error and exits with status 1; the program's phones end with it. A program may
// replace the function before it creates a phone.
extern void (*on_phone_failure)(const std::string& what);

// Reports `what` unless `fine`.
inline void expect_of_phone(bool fine, const std::string& what) {
  if (!fine) on_phone_failure(what);
}
