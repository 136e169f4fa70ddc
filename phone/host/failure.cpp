#include "phone/host/failure.h"

#include <stdio.h>
#include <stdlib.h>

namespace {

void end_program(const std::string& what) {
  fprintf(stderr, "bench phone: %s\n", what.c_str());
  exit(1);
}

}  // namespace

void (*on_phone_failure)(const std::string& what) = end_program;
