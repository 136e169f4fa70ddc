// A phone that lets a test down fails that test.
#include <gtest/gtest.h>

#include "phone/host/trouble.h"

static const bool s_hooked = [] {
  on_phone_trouble = [](const std::string& what) { ADD_FAILURE() << what; };
  return true;
}();
