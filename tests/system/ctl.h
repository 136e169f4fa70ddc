// harrowmossctl in a phone.
#pragma once

#include "phone/host/daemon.h"

inline RunResult ctl(const Phone& phone, std::vector<std::string> words) {
  words.insert(words.begin(), "harrowmossctl");
  return phone.run(words);
}

inline bool holds(const std::string& text, const std::string& piece) {
  return text.find(piece) != std::string::npos;
}
