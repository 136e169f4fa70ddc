// The platform layer must not work on a developer's own machine.
#include <android/log.h>
#include <cutils/properties.h>
#include <cutils/sockets.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "platform/linux/bench_phone.h"

namespace {

TEST(BenchPhoneGuardDeathTest, EveryEntryEndsTheProcessOutsideOfAPhone) {
  ASSERT_NE(access(kBenchPhoneMarker, F_OK), 0) << "this test is for the machine outside";
  char value[PROPERTY_VALUE_MAX];
  const ::testing::ExitedWithCode refused(125);
  constexpr char kLine[] = "^harrowmoss: this is not a bench phone [^\n]*\n$";
  EXPECT_EXIT(property_get("a", value, "1"), refused, kLine);
  EXPECT_EXIT(property_set("a", "1"), refused, kLine);
  EXPECT_EXIT(__android_log_print(ANDROID_LOG_INFO, "tag", "text"), refused, kLine);
  EXPECT_EXIT(android_get_control_socket("harrowmossd"), refused, kLine);
}

}  // namespace
