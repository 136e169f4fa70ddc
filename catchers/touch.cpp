#include "catchers/catchers.h"
#include "selflog/log.h"

namespace {

constexpr char kLogSource[] = "commands";

}  // namespace

// The recorder is still to be connected.
int catcher_tp_log(const char*, const char*) {
  LOGD("function invoked");
  return 0;
}
