// harrowmossctl in a phone.
#pragma once

#include "phone/host/daemon.h"
#include "tests/support/contains.h"

inline RunResult ctl(const Phone& phone, std::vector<std::string> words) {
  words.insert(words.begin(), "harrowmossctl");
  return phone.run(words);
}
