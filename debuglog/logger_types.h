// The tables that a start and a stop walk; catchers/logger_types.cpp defines them.
#pragma once

#include <stdint.h>

#include "model/masks.h"

struct LoggerType {
  int32_t mask;  // exactly one bit
  // Starts the capture; `log_dir` is the run's working directory, `name` the type's, which names
  // its directory there and its process. Returns 0, or -1 when fork() failed. Called in the process
  // that starts logging, on its main thread.
  int (*start)(const char* log_dir, const char* name);
};

constexpr int kLoggerTypeCount = 14;
extern const LoggerType kLoggerTypes[kLoggerTypeCount];  // in the order of starting

// What a stop does before it ends the workers, in this order. A step that depends on the mask
// checks it itself. Called in the process that stops logging, on its main thread.
using ClosingStep = void (*)();
constexpr int kClosingStepCount = 26;
extern const ClosingStep kClosingSteps[kClosingStepCount];
