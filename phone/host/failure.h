// What the host's side of a bench phone does when the phone itself lets it down.
#pragma once

#include <string>

// Called with one line when a phone does not come up, hangs or answers nonsense. Unless a program
// puts another function here before it makes a phone, the line goes to standard error and the
// program ends with status 1; its phones end with it.
extern void (*on_phone_failure)(const std::string& what);

// Reports `what` unless `fine`.
inline void expect_of_phone(bool fine, const std::string& what) {
  if (!fine) on_phone_failure(what);
}
