// What debug logging can capture: the rows that start and stop walk. catchers/ has the tables.
#pragma once

#include <stdint.h>

struct logger_type {
  int32_t mask;      // exactly one bit
  const char* name;  // directory below the run, and process-name suffix
  // Starts the capture; `log_dir` is the run's working directory, `name` this row's. Returns 0, or
  // -1 when fork() failed. Called in the process that starts logging, on its main thread.
  int (*start)(const char* log_dir, const char* name);
};

constexpr int kLoggerTypeCount = 14;
extern const logger_type kLoggerTypes[kLoggerTypeCount];  // in the order of starting

// What a stop does before it ends the workers, in this order. A step that belongs to a type looks
// at the mask itself. Called in the process that stops logging, on its main thread.
using closing_step = void (*)();
constexpr int kClosingStepCount = 26;
extern const closing_step kClosingSteps[kClosingStepCount];

// Type bits that code outside of the table asks for.
constexpr int32_t kTypeMobile = 0x1;
constexpr int32_t kTypeModem = 0x2;
constexpr int32_t kTypeNet = 0x4;
constexpr int32_t kTypePower = 0x8;
constexpr int32_t kTypeWifi = 0x40;
constexpr int32_t kTypeSystrace = 0x200;
constexpr int32_t kTypeMpssDump = 0x400;
constexpr int32_t kTypeMemory = 0x1000;
constexpr int32_t kTypeAnrDumpsys = 0x2000;
constexpr int32_t kTypeSensor = 0x4000;
constexpr int32_t kTypeExtendedLogcat = 0x10000;  // no row: 39 rotated files of each logcat
