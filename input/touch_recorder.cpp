#include "input/touch_recorder.h"

#include <atomic>

namespace {

std::atomic<int> s_recording{0};

}  // namespace

int start_tp_log() {
  s_recording = 1;
  return 1;
}

int stop_tp_log() {
  s_recording = 0;
  return 0;
}
